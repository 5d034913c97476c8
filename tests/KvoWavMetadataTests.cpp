// The metadata chunks of WAV files, built byte by byte: bext, cue, LIST (INFO and adtl),
// axml, chna and dbmd as the reader takes them; the closing chunks of the writer; and the
// join, which carries none of it into its output.

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KvoStreamCapture.h"
#include "KvoTestUtilities.h"
#include "KvoWavTestFiles.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"
#include "containers/KvoAudioBuffer.h"

namespace kvo
{
namespace
{

using namespace testing;
using Entries = std::vector<std::pair<std::string, std::string>>;
using Markers = std::vector<std::tuple<int, uint32_t, std::string>>;

Entries EntriesOf(const StringDictionary& dictionary)
{
    Entries entries;
    for (uint64_t i = 0; i < dictionary.size(); ++i)
        entries.emplace_back(dictionary.keyAt(i).GetStdString(), dictionary.valueAt(i).GetStdString());
    return entries;
}

Markers MarkersOf(const AudioFilesMetadata& metadata)
{
    Markers markers;
    for (const AudioFilesMetadata::Marker* m : metadata.markers)
        markers.emplace_back(m->identifier, m->position, m->label.GetStdString());
    return markers;
}

/** Text with its zero bytes, which std::string's constructor from a literal would drop. */
template <size_t size>
std::string Z(const char (&text)[size])
{
    return std::string(text, size - 1);
}

// At 1000 Hz a time reference counts milliseconds.
const std::string fmt = Chunk("fmt ", Fmt(1, 1, 1000, 16));
// A rate the writer takes, for the files a join reads.
const std::string writableFmt = Chunk("fmt ", Fmt(1, 1, 44100, 16));
const std::string data = Chunk("data", Pcm16({ 1, 2, 3 }));

struct BextFields
{
    std::string description = "A take";
    std::string originator = "Recorder";
    std::string originatorRef = "REF-1";
    std::string date = "2026-11-23";
    std::string time = "11:22:33";
    uint64_t timeReference = 0;
    uint16_t version = 2;
    std::string umid = std::string(64, '\0');
    std::string history;
};

std::string Bext(const BextFields& f)
{
    return Bytes().Field(f.description, 256).Field(f.originator, 32).Field(f.originatorRef, 32).Field(f.date, 10)
        .Field(f.time, 8).U64(f.timeReference).U16(f.version).Field(f.umid, 64).Text(std::string(190, '\0'))
        .Text(f.history);
}

/** A cue entry: identifier, order, chunk identifier, chunk start, block start, sample offset. */
std::string CuePoint(uint32_t identifier, uint32_t order, uint32_t offset)
{
    return Bytes().U32(identifier).U32(order).Text("data").U32(0).U32(0).U32(offset);
}

std::string Cue(int32_t count, const std::string& points)
{
    return Chunk("cue ", Bytes().U32(uint32_t(count)).Text(points));
}

std::string List(const std::string& type, const std::string& subChunks)
{
    return Chunk("LIST", type + subChunks);
}

/** An INFO or adtl sub-chunk with no pad byte after an odd payload. */
std::string Sub(const std::string& id, const std::string& payload, int64_t sizeField = -1)
{
    return Bytes().Text(id).U32(sizeField >= 0 ? uint64_t(sizeField) : payload.size()).Text(payload);
}

std::string Label(const std::string& id, uint32_t cue, const std::string& text)
{
    return Chunk(id, Bytes().U32(cue).Text(text));
}

class WavMetadataTest : public WavFileFixture
{
protected:
    /** The metadata of a reader of fmt, chunks and data, or an empty record when it failed to open. */
    AudioFilesMetadata MetadataOf(const std::string& chunks)
    {
        reader = Open(Riff(chunks));
        return reader ? reader->getMetadata() : AudioFilesMetadata();
    }

    std::unique_ptr<WavFileReader> reader;
};

// ---------------------------------------------------------------------------------------
// bext

TEST_F(WavMetadataTest, BextKeysInTheirOrder)
{
    BextFields f;
    f.timeReference = 2001; // its low byte is not 0: the time stops at its eight bytes all the same
    f.umid = Z("\x01\x02\xFF");
    f.history = "A=PCM,F=1000\r\n";
    const AudioFilesMetadata m = MetadataOf(fmt + Chunk("bext", Bext(f)) + data);

    EXPECT_TRUE(m.hasBext);
    EXPECT_EQ(EntriesOf(m.bextEntries), (Entries {
        { "bwav description", "A take" },
        { "bwav originator", "Recorder" },
        { "bwav originator ref", "REF-1" },
        { "bwav origination date", "2026-11-2311:22:33" }, // ten characters leave no terminator
        { "bwav origination time", "11:22:33" },
        { "bwav time reference", "2001" },
        { "bwav smpte umid", "12255" + std::string(61, '0') },
        { "bwav bwf version", "2" },
        { "bwav coding history", "A=PCM,F=1000\r\n" },
        { "bwav time reference (translated HH:MM:SS.mmm)", "00:00:02.001" },
    }));
    EXPECT_EQ(m.numSamples, 3u);
}

TEST_F(WavMetadataTest, BextOfExactlyItsFixedSizeAndBeforeFmt)
{
    BextFields f;
    f.timeReference = 5000;
    f.umid = std::string(64, '\0'); // 64 '0' characters: empty
    f.description = std::string(256, 'd');
    f.originator = std::string(32, 'o');
    f.time = "";
    const std::string bext = Chunk("bext", Bext(f));
    ASSERT_EQ(bext.size(), 8u + 602u);

    AudioFilesMetadata m = MetadataOf(fmt + bext + data);
    EXPECT_EQ(m.bextEntries.get("bwav coding history", "missing"), "");
    EXPECT_EQ(m.bextEntries.get("bwav smpte umid", "missing"), "");
    // Texts that fill their fields run on to the first zero byte.
    EXPECT_EQ(m.bextEntries.get("bwav description"), std::string(256, 'd') + std::string(32, 'o') + "REF-1");
    EXPECT_EQ(m.bextEntries.get("bwav originator"), std::string(32, 'o') + "REF-1");
    EXPECT_EQ(m.bextEntries.get("bwav origination date"), "2026-11-23");
    EXPECT_EQ(m.bextEntries.get("bwav origination time", "missing"), "");
    EXPECT_EQ(m.bextEntries.get("bwav time reference (translated HH:MM:SS.mmm)"), "00:00:05.000");

    // No rate yet: the time isn't translated, and the key stays with an empty value.
    m = MetadataOf(bext + fmt + data);
    EXPECT_TRUE(m.hasBext);
    EXPECT_EQ(m.bextEntries.size(), 10u);
    EXPECT_EQ(m.bextEntries.get("bwav time reference (translated HH:MM:SS.mmm)", "missing"), "");
    EXPECT_EQ(m.bextEntries.get("bwav time reference"), "5000");
}

TEST_F(WavMetadataTest, TranslatedTimeReferences)
{
    const std::vector<std::pair<uint64_t, std::string>> cases {
        { 0, "00:00:00.000" },
        { 3600000, "01:00:00.000" },
        { 1600, "00:00:02.-400" },        // seconds rounded, milliseconds what is left
        { 59600, "00:01:00.-400" },       // 60 seconds carry into the minutes
        { 3599600, "01:00:00.-400" },     // and 60 minutes into the hours
        { 4294967296, "1193:02:47.296" }, // the high 32 bits take part
        { 90061001, "25:01:01.001" },
    };
    for (const auto& [timeReference, text] : cases)
    {
        BextFields f;
        f.timeReference = timeReference;
        const AudioFilesMetadata m = MetadataOf(fmt + Chunk("bext", Bext(f)) + data);
        EXPECT_EQ(m.bextEntries.get("bwav time reference (translated HH:MM:SS.mmm)"), text) << timeReference;
        EXPECT_EQ(m.bextEntries.get("bwav time reference"), std::to_string(timeReference));
    }
}

TEST_F(WavMetadataTest, Wave64BextAndList)
{
    BextFields f;
    f.timeReference = 1000;
    const std::string list = Bytes().Text("INFO").Text(Sub("INAM", "Name"));
    reader = Open(Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 1000, 16)) + W64Chunk(w64Bext, Bext(f))
                         + W64Chunk(w64List, list) + W64Chunk(w64Data, Pcm16({ 1, 2, 3 }))));
    ASSERT_TRUE(reader);
    const AudioFilesMetadata& m = reader->getMetadata();
    EXPECT_TRUE(m.isW64 && m.hasBext);
    EXPECT_EQ(m.bextEntries.get("bwav originator"), "Recorder");
    EXPECT_EQ(m.bextEntries.get("bwav time reference (translated HH:MM:SS.mmm)"), "00:00:01.000");
    EXPECT_EQ(EntriesOf(m.listEntries), (Entries { { "INAM", "Name" }, { "MetaDataSource", "WAV" } }));
    EXPECT_EQ(m.numSamples, 3u);
}

// ---------------------------------------------------------------------------------------
// cue

TEST_F(WavMetadataTest, CuePointsGiveEntriesAndMarkers)
{
    const AudioFilesMetadata m = MetadataOf(fmt + Cue(2, CuePoint(7, 500, 1000) + CuePoint(65537, 1, 2000)) + data);
    EXPECT_EQ(EntriesOf(reader->getCueEntries()), (Entries {
        { "NumCuePoints", "2" },
        { "Cue0Identifier", "7" }, { "Cue0Order", "500" }, { "Cue0ChunkID", "1635017060" },
        { "Cue0ChunkStart", "0" }, { "Cue0BlockStart", "0" }, { "Cue0Offset", "1000" },
        { "Cue1Identifier", "65537" }, { "Cue1Order", "1" }, { "Cue1ChunkID", "1635017060" },
        { "Cue1ChunkStart", "0" }, { "Cue1BlockStart", "0" }, { "Cue1Offset", "2000" },
    }));
    // The position is the sample offset, the identifier its low 16 bits.
    EXPECT_EQ(MarkersOf(m), (Markers { { 7, 1000, "7" }, { 1, 2000, "1" } }));
    EXPECT_TRUE(m.listEntries.size() == 0 && !m.hasBext);
}

TEST_F(WavMetadataTest, CueCountsAgainstTheChunk)
{
    // A count beyond the chunk: the entries stop at its end.
    AudioFilesMetadata m = MetadataOf(fmt + Cue(5, CuePoint(1, 0, 10) + CuePoint(2, 0, 20)) + data);
    EXPECT_EQ(reader->getCueEntries().get("NumCuePoints"), "5");
    EXPECT_EQ(reader->getCueEntries().size(), 13u);
    EXPECT_EQ(MarkersOf(m), (Markers { { 1, 10, "1" }, { 2, 20, "2" } }));

    // A count below the entries: only so many are read.
    m = MetadataOf(fmt + Cue(1, CuePoint(1, 0, 10) + CuePoint(2, 0, 20)) + data);
    EXPECT_EQ(MarkersOf(m), (Markers { { 1, 10, "1" } }));

    for (const int32_t count : { 0, -3 })
    {
        m = MetadataOf(fmt + Cue(count, CuePoint(1, 0, 10)) + data);
        EXPECT_EQ(EntriesOf(reader->getCueEntries()), (Entries { { "NumCuePoints", std::to_string(count) } }));
        EXPECT_TRUE(m.markers.IsEmpty());
    }

    // A second cue chunk replaces the entries and adds its markers.
    m = MetadataOf(fmt + Cue(2, CuePoint(1, 0, 10) + CuePoint(2, 0, 20)) + Cue(1, CuePoint(3, 0, 30)) + data);
    EXPECT_EQ(reader->getCueEntries().size(), 7u);
    EXPECT_EQ(reader->getCueEntries().get("Cue0Identifier"), "3");
    EXPECT_EQ(MarkersOf(m), (Markers { { 1, 10, "1" }, { 2, 20, "2" }, { 3, 30, "3" } }));
}

// ---------------------------------------------------------------------------------------
// LIST adtl

TEST_F(WavMetadataTest, AdtlTextsNameTheMarkers)
{
    const std::string cue = Cue(3, CuePoint(1, 0, 10) + CuePoint(2, 0, 20) + CuePoint(65537, 0, 30));
    const std::string ltxt = Bytes().U32(2).U32(44).Text("rgn ").U16(1).U16(2).U16(3).U16(1252).Text(Z("Region\0"));
    const std::string adtl = List("adtl", Label("labl", 1, Z("Intro\0")) + Label("labl", 65537, Z("Never\0"))
                                              + Label("note", 2, Z("A note\0")) + Chunk("ltxt", ltxt));
    const AudioFilesMetadata m = MetadataOf(fmt + cue + adtl + data);

    const Entries expected {
        { "CueLabel0Identifier", "1" }, { "CueLabel0Text", Z("Intro\0") },
        { "CueLabel1Identifier", "65537" }, { "CueLabel1Text", Z("Never\0") },
        { "CueNote0Identifier", "2" }, { "CueNote0Text", Z("A note\0") },
        { "CueRegion0Identifier", "2" }, { "CueRegion0SampleLength", "44" }, { "CueRegion0Purpose", "544106354" },
        { "CueRegion0Country", "1" }, { "CueRegion0Language", "2" }, { "CueRegion0Dialect", "3" },
        { "CueRegion0CodePage", "1252" }, { "CueRegion0Text", Z("Region\0") },
        { "NumCueLabels", "2" }, { "NumCueNotes", "1" }, { "NumCueRegions", "1" },
        { "MetaDataSource", "WAV" },
    };
    EXPECT_EQ(EntriesOf(reader->getInfoEntries()), expected);
    EXPECT_EQ(EntriesOf(m.listEntries), expected);
    // Marker 2 is named by the ltxt, the last text for it; the label for 65537 names nobody,
    // while the third cue point, cut to identifier 1, takes the label of 1.
    EXPECT_EQ(MarkersOf(m), (Markers { { 1, 10, Z("Intro\0") }, { 2, 20, Z("Region\0") }, { 1, 30, Z("Intro\0") } }));

    // A cue chunk after its list keeps the decimal labels.
    EXPECT_EQ(MarkersOf(MetadataOf(fmt + adtl + cue + data)), (Markers { { 1, 10, "1" }, { 2, 20, "2" }, { 1, 30, "1" } }));
}

TEST_F(WavMetadataTest, ListsThatAddNothing)
{
    for (const std::string& list : { List("adtl", ""), List("adtl", Chunk("abcd", "xy")), List("wxyz", Sub("INAM", "N")) })
    {
        const AudioFilesMetadata m = MetadataOf(fmt + Cue(1, CuePoint(1, 0, 10)) + list + data);
        EXPECT_EQ(reader->getInfoEntries().size(), 0u);
        EXPECT_EQ(m.listEntries.size(), 0u);
        EXPECT_EQ(MarkersOf(m), (Markers { { 1, 10, "1" } }));
        EXPECT_EQ(m.numSamples, 3u);
    }
}

// ---------------------------------------------------------------------------------------
// LIST INFO

TEST_F(WavMetadataTest, InfoWithEvenLengthsIsReadWhole)
{
    const std::string info = Sub("INAM", "Title!") + Sub("iart", "Me") + Sub("ICMT", Z("ab\0\0")) + Sub("Iart", "Us")
                             + Sub("YEAR", "2026");
    const AudioFilesMetadata m = MetadataOf(fmt + List("INFO", info) + data);
    EXPECT_EQ(EntriesOf(m.listEntries), (Entries { { "INAM", "Title!" }, { "IART", "Us" }, { "ICMT", Z("ab\0\0") },
                                                   { "YEAR", "2026" }, { "MetaDataSource", "WAV" } }));
    EXPECT_EQ(EntriesOf(MetadataOf(fmt + List("info", Sub("ISFT", "sj")) + data).listEntries),
              (Entries { { "ISFT", "sj" }, { "MetaDataSource", "WAV" } }));
}

TEST_F(WavMetadataTest, InfoDerailsWithoutError)
{
    // No pad byte is passed over: after the odd value the headers are read one byte off,
    // and nothing more matches.
    AudioFilesMetadata m = MetadataOf(fmt + List("INFO", Sub("INAM", "Odd") + std::string(1, '\0') + Sub("IART", "Me")) + data);
    EXPECT_EQ(EntriesOf(m.listEntries), (Entries { { "INAM", "Odd" }, { "MetaDataSource", "WAV" } }));
    EXPECT_EQ(m.numSamples, 3u);

    // Nor is an unknown identifier's payload: it is read as the next header.
    m = MetadataOf(fmt + List("INFO", Sub("ABCD", Sub("IART", "Me") + "xx") + Sub("INAM", "No")) + data);
    EXPECT_EQ(m.listEntries.get("IART"), "Me");
    EXPECT_EQ(m.listEntries.get("INAM", "absent"), "absent");

    // A value stated longer than the list is cut to what was left before its size field,
    // and so takes four bytes of what follows; a size of 0 or below ends the list.
    m = MetadataOf(fmt + List("INFO", Sub("INAM", "Cuts", 100)) + data);
    EXPECT_EQ(m.listEntries.get("INAM"), "Cutsdata");
    EXPECT_EQ(m.numSamples, 3u);
    m = MetadataOf(fmt + List("INFO", Sub("INAM", "", 0xFFFFFFFF) + Sub("IART", "Me")) + data);
    EXPECT_EQ(m.listEntries.size(), 0u);
    EXPECT_EQ(m.numSamples, 3u);
}

// ---------------------------------------------------------------------------------------
// axml and chna

TEST_F(WavMetadataTest, AxmlAndChnaChunks)
{
    const std::string entry1 = Bytes().U16(1).Text("ATU_00000001").Text("AT_00031001_01").Text("AP_00031001").U8(0x70);
    const std::string entry2 = Bytes().U16(2).Field("", 12).Field("ref", 14).Field("", 11).U8(0);
    const std::string chna = Bytes().U16(2).U16(1).Text(entry1).Text(entry2).Text("rest"); // 4 + 80 + 4: two entries
    const AudioFilesMetadata m = MetadataOf(fmt + Chunk("axml", Z("<axml/>\0")) + Chunk("chna", chna) + data);

    EXPECT_EQ(m.axmlText, Z("<axml/>\0"));
    const ChnaData& table = reader->getChnaData();
    EXPECT_EQ(table.numTracks, 2);
    EXPECT_EQ(table.numUids, 1);
    ASSERT_EQ(table.trackIndices.GetSize(), 2u);
    EXPECT_TRUE(table.trackIndices[0] == 1 && table.trackIndices[1] == 2);
    EXPECT_EQ(table.trackUids[0], "ATU_00000001");
    EXPECT_EQ(table.trackUids[1], ""); // all zero bytes
    EXPECT_EQ(table.trackRefs[0], "AT_00031001_01");
    EXPECT_EQ(table.trackRefs[1], "ref" + std::string(11, '\0')); // other bytes: all of them
    EXPECT_EQ(table.packRefs[0], "AP_00031001");
    EXPECT_EQ(table.packRefs[1], "");
    EXPECT_EQ(m.numSamples, 3u);

    // A later chna replaces the table.
    MetadataOf(fmt + Chunk("chna", chna) + Chunk("chna", Bytes().U16(5).U16(6)) + data);
    EXPECT_EQ(reader->getChnaData().numTracks, 5);
    EXPECT_TRUE(reader->getChnaData().trackIndices.IsEmpty());
}

TEST_F(WavMetadataTest, WriterClosesWithChnaAndAxml)
{
    const File file(String(folder / "adm.wav"));
    {
        ScopedPointer<WavFileWriter> writer = WavFileWriter::CreateWriterFor(file, 44100, 1, 16, Overwrite(2));
        ASSERT_NE(writer.get(), nullptr);
        ChnaData chna;
        chna.numTracks = 3;
        chna.numUids = 2;
        for (const int index : { 1, 2 })
            chna.trackIndices.PushBack(index);
        for (const char* uid : { "ATU_00000001", "ATU_000000020000 too long" })
            chna.trackUids.Add(uid);
        for (const char* ref : { "AT_00031001_01", "short" })
            chna.trackRefs.Add(ref);
        for (const char* ref : { "AP_00031001", "AP_0003100X too long" })
            chna.packRefs.Add(ref);
        writer->setAdmChunks("<adm/>", chna);
        AudioBuffer<float> buffer(1, 3);
        for (int i = 0; i < 3; ++i)
            buffer.GetWritePointer(0)[i] = float(i + 1) / 32768.0f;
        ASSERT_TRUE(writer->writeSamples(buffer, 0, 3, false));
    }

    const std::string bytes = ReadWholeFile(folder / "adm.wav");
    // Three entries, as many as the larger count; the texts padded or cut to 12, 14 and 11 bytes.
    const std::string expectedChna = Bytes().Text("chna").U32(4 + 3 * 40).U16(3).U16(2)
        .U16(1).Text("ATU_00000001").Text("AT_00031001_01").Text("AP_00031001").U8(0x70)
        .U16(2).Text("ATU_00000002").Field("short", 14).Text("AP_0003100X").U8(0x70)
        .U16(0).Field("", 37).U8(0x70);
    const std::string expectedAxml = Bytes().Text("axml").U32(8).Text(Z("<adm/>\0\0"));
    ASSERT_EQ(bytes.size(), 104u + 6u + expectedChna.size() + expectedAxml.size());
    EXPECT_EQ(bytes.substr(0, 8), Bytes().Text("RIFF").U32(bytes.size() - 8).s);
    EXPECT_EQ(bytes.substr(96, 14), Bytes().Text("data").U32(6).Text(Pcm16({ 1, 2, 3 })).s);
    EXPECT_EQ(bytes.substr(110), expectedChna + expectedAxml);

    // The reader takes them back.
    reader = Open(bytes);
    ASSERT_TRUE(reader);
    ASSERT_EQ(reader->getChnaData().trackUids.GetSize(), 3u);
    EXPECT_EQ(reader->getChnaData().trackUids[1], "ATU_00000002");
    EXPECT_EQ(reader->getMetadata().axmlText, Z("<adm/>\0\0"));
}

// ---------------------------------------------------------------------------------------
// dbmd through the reader

/** A dbmd chunk that parses: version, one skipped segment, the terminator. */
const std::string soundDbmd = Chunk("dbmd", Bytes().U32(0x01000007).U8(1).U16(2).Text("ab").U8(0x99).U8(0));

/** A dbmd chunk whose Atmos segment has a wrong checksum. */
const std::string faultyDbmd = Chunk("dbmd", Bytes().U32(0x01000007).U8(9).U16(248).Text(std::string(248, '\0')).U8(0).U8(0));

TEST_F(WavMetadataTest, DbmdIsAGateOnly)
{
    // A sound chunk changes nothing; the reader hands the chunk's own size to the parser,
    // whose refusals (their cases are in the dbmd tests) stop the opening.
    const AudioFilesMetadata gated = MetadataOf(fmt + soundDbmd + data);
    EXPECT_EQ(gated.numSamples, 3u);
    EXPECT_EQ(gated.sampleRate, 1000.0);
    EXPECT_TRUE(!gated.hasBext && gated.listEntries.size() == 0 && gated.markers.IsEmpty() && gated.axmlText.IsEmpty());

    std::string large = Bytes().U32(0x01000007).U8(0);
    large.resize(6144, '\x11');
    EXPECT_EQ(MetadataOf(fmt + Chunk("dbmd", large) + data).numSamples, 3u);
    EXPECT_EQ(Refusal(Riff(fmt + Chunk("dbmd", large + "x") + data)), "Invalid chunk size for 'dbmd'");
    EXPECT_EQ(Refusal(Riff(fmt + faultyDbmd + data)), "invalid checksum");
    // A chunk size of 2 GiB or more.
    EXPECT_EQ(Refusal(Riff(fmt + Chunk("dbmd", Bytes().U32(1).U8(0), 0x80000000))), "Invalid chunk size for 'dbmd'");
}

// ---------------------------------------------------------------------------------------
// The join carries no metadata

TEST_F(WavMetadataTest, JoinLeavesMetadataBehindAndStopsAtAFaultyDbmd)
{
    BextFields f;
    f.history = "A=PCM\r\n";
    const std::string metadataChunks = Chunk("bext", Bext(f)) + List("INFO", Sub("INAM", "Name"))
                                       + Cue(1, CuePoint(1, 0, 1)) + List("adtl", Label("labl", 1, "L")) + soundDbmd
                                       + Chunk("axml", "<a/>");
    const std::string samples1 = Pcm16({ 100, -200, 300 });
    const std::string samples2 = Pcm16({ -4, 5 });
    Write(Riff(writableFmt + metadataChunks + Chunk("data", samples1) + Chunk("LIST", "INFO")), "a.wav");
    Write(Riff(metadataChunks + writableFmt + Chunk("data", samples2)), "b.wav");
    Write(Riff(writableFmt + Chunk("data", samples1)), "plain-a.wav");
    Write(Riff(writableFmt + Chunk("data", samples2)), "plain-b.wav");

    const ProgramRun run = RunSonaJoin({ "-i", (folder / "a.wav") + "," + (folder / "b.wav"), "-d", folder / "out.wav" });
    ASSERT_EQ(run.exitCode, 0) << run.standardError;
    EXPECT_EQ(run.standardError, "");
    const ProgramRun plainRun =
        RunSonaJoin({ "-i", (folder / "plain-a.wav") + "," + (folder / "plain-b.wav"), "-d", folder / "plain.wav" });
    ASSERT_EQ(plainRun.exitCode, 0);

    const std::string out = ReadWholeFile(folder / "out.wav");
    EXPECT_EQ(out, ReadWholeFile(folder / "plain.wav"));
    ASSERT_EQ(out.size(), 104u + 10u); // the header, the samples, and nothing after them
    EXPECT_EQ(out.substr(96), Bytes().Text("data").U32(10).Text(samples1).Text(samples2).s);

    // A faulty dbmd chunk stops the join, and the output is not made.
    Write(Riff(writableFmt + faultyDbmd + data), "faulty.wav");
    const std::string refused = folder / "refused.wav";
    const ProgramRun faultyRun = RunSonaJoin({ "-i", (folder / "plain-a.wav") + "," + (folder / "faulty.wav"), "-d", refused });
    EXPECT_EQ(faultyRun.exitCode, 1);
    EXPECT_NE(faultyRun.standardError.find("DolbyAtmosMetadata::parseDolbyAtmosMetadata("), std::string::npos)
        << faultyRun.standardError;
    EXPECT_NE(faultyRun.standardError.find("\ninvalid checksum\n"), std::string::npos) << faultyRun.standardError;
    EXPECT_FALSE(std::filesystem::exists(refused));
}

// ---------------------------------------------------------------------------------------
// Malformed chunks

TEST_F(WavMetadataTest, MalformedChunksNeverCrash)
{
    // Hostile sizes, sub-chunks that overlap or run past their list or the file, then random
    // chunks: each file opens wherever the chunk stands; only dbmd raises refusals of its own.
    std::vector<std::string> chunks;
    for (const char* id : { "bext", "cue ", "LIST", "axml", "chna" })
        for (const uint64_t size : { 0ull, 1ull, 3ull, 4ull, 27ull, 601ull, 0x7FFFFFFFull, 0xFFFFFFF0ull, 0xFFFFFFFFull })
            chunks.push_back(Chunk(id, "INFOadtl", int64_t(size)));
    for (const std::string type : { "adtl", "INFO" })
        for (const uint64_t size : { 0ull, 3ull, 19ull, 0x7FFFFFFFull, 0x80000000ull, 0xFFFFFFFCull, 0xFFFFFFFFull })
        {
            const std::string subs = Sub("labl", "abcdefgh", int64_t(size)) + Sub("ltxt", "abc", int64_t(size))
                                     + Sub("note", "", int64_t(size)) + Sub("INAM", "x", int64_t(size));
            chunks.push_back(List(type, subs));
            chunks.push_back(Chunk("LIST", type + subs, 0xFFFFFFFF));
            chunks.push_back(Chunk("LIST", type + subs, 6));
        }
    chunks.push_back(Cue(0x7FFFFFFF, CuePoint(1, 1, 1)));
    chunks.push_back(Chunk("chna", Bytes().U16(0xFFFF).U16(0xFFFF).Text(std::string(30, 'x'))));
    std::mt19937 random(20261123);
    const std::vector<std::string> ids { "bext", "cue ", "LIST", "axml", "chna", "dbmd" };
    const std::vector<std::string> listTypes { "INFO", "adtl", "info", "xxxx" };
    const std::vector<std::string> subIds { "labl", "note", "ltxt", "INAM", "iart", "zzzz" };
    for (int round = 0; round < 300; ++round)
    {
        const std::string& id = ids[random() % ids.size()];
        std::string payload = id == "dbmd" ? Bytes().U32(random() % 2 == 0 ? 0x01000007 : random()).s
                              : id == "LIST" ? listTypes[random() % listTypes.size()] : "";
        for (int n = id == "LIST" ? int(random() % 5) : 0; n > 0; --n)
            payload += Sub(subIds[random() % subIds.size()], "", random() % 3 == 0 ? random() : random() % 24);
        for (int n = int(random() % 40); n > 0; --n)
            payload += char(random() % 4 == 0 ? random() % 12 : random());
        const int64_t sizeField = random() % 3 == 0 ? int64_t(random()) : random() % 2 == 0 ? -1 : int64_t(random() % 64);
        chunks.push_back(Chunk(id, payload, sizeField));
    }

    for (const std::string& chunk : chunks)
    {
        const bool mayRefuse = chunk.compare(0, 4, "dbmd") == 0;
        const std::string files[] = { Riff(fmt + chunk + data), Riff(fmt + data + chunk),
                                      Wave64(W64Chunk(w64Fmt, Fmt(1, 1, 1000, 16)) + W64Chunk(w64Bext, chunk)
                                             + W64Chunk(w64List, chunk.substr(8)) + W64Chunk(w64Data, Pcm16({ 1 }))) };
        for (const std::string& bytes : files)
        {
            const File file = Write(bytes);
            StreamCapture err(std::cerr);
            const std::string message = MessageOf([&] { WavFileReader { file }; });
            if (!mayRefuse)
            {
                EXPECT_EQ(message, "(no exception)") << chunk.substr(0, 4);
            }
        }
        // After the data, the chunk cannot hide the samples.
        if (!mayRefuse)
        {
            reader = Open(files[1]);
            ASSERT_TRUE(reader);
            EXPECT_EQ(reader->getNumSamples(), 3u);
        }
    }
}

} // namespace
} // namespace kvo
