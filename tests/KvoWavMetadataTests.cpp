// The metadata chunks of WAV files, built byte by byte: bext, cue, LIST (INFO and adtl),
// axml, chna and dbmd as the reader takes them, one row each; the closing chunks of the
// writer; and DolbyAtmosMetadata, the dbmd parser the reader hands its chunk to: bodies parsed
// from a file, every refusal with its text and the function that raises it. (The join, which
// carries none of it, has its rows in the join tests.)

#include "KvoTestUtilities.h"
#include "audiofiles/KvoDolbyAtmosMetadata.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"
#include "containers/KvoAudioBuffer.h"
#include "files/KvoFileReader.h"

namespace kvo::testing
{
namespace
{

// At 1000 Hz a time reference counts milliseconds.
const std::string fmt = Chunk("fmt ", Fmt(1, 1, 1000, 16));
const std::string data = Chunk("data", Pcm16({ 1, 2, 3 }));

struct BextFields
{
    std::string description = "A take";
    std::string originator = "Recorder";
    std::string date = "2026-11-23";
    std::string time = "11:22:33";
    uint64_t timeReference = 0;
    std::string umid = std::string(64, '\0');
    std::string history;
};

std::string Bext(const BextFields& f)
{
    return Bytes().Field(f.description, 256).Field(f.originator, 32).Field("REF-1", 32).Field(f.date, 10).Field(f.time, 8)
        .U64(f.timeReference).U16(2).Field(f.umid, 64).Text(std::string(190, '\0')).Text(f.history);
}

/** A cue entry: identifier, order, chunk identifier, chunk start, block start, sample offset. */
std::string CuePoint(uint32_t identifier, uint32_t offset, uint32_t order = 0)
{
    return Bytes().U32(identifier).U32(order).Text("data").U32(0).U32(0).U32(offset);
}

std::string Cue(int32_t count, const std::string& points)
{
    return Chunk("cue ", Bytes().U32(uint32_t(count)).Text(points));
}

std::string List(const std::string& type, const std::string& subChunks) { return Chunk("LIST", type + subChunks); }

/** An INFO or adtl sub-chunk with no pad byte after an odd payload. */
std::string Sub(const std::string& id, const std::string& payload, int64_t sizeField = -1)
{
    return Bytes().Text(id).U32(sizeField >= 0 ? uint64_t(sizeField) : payload.size()).Text(payload);
}

std::string Label(const std::string& id, uint32_t cue, const std::string& text)
{
    return Chunk(id, Bytes().U32(cue).Text(text));
}

std::string Describe(const StringDictionary& dictionary)
{
    std::string text;
    for (uint64_t i = 0; i < dictionary.size(); ++i)
        text += dictionary.keyAt(i).GetStdString() + "=" + dictionary.valueAt(i).GetStdString() + "|";
    return text;
}

/** What a reader made of a file's metadata, in the parts a row looks at. */
enum Part { bextPart, timePart, cuePart, infoPart, listPart, markerPart };

std::string Describe(const WavFileReader& reader, Part part)
{
    const AudioFilesMetadata& m = reader.getMetadata();
    std::string text = part == bextPart ? Describe(m.bextEntries) : part == cuePart ? Describe(reader.getCueEntries())
                       : part == infoPart ? Describe(reader.getInfoEntries()) : part == listPart ? Describe(m.listEntries) : "";
    if (part == timePart)
        text = m.bextEntries.get("bwav time reference").GetStdString() + " "
               + m.bextEntries.get("bwav time reference (translated HH:MM:SS.mmm)", "missing").GetStdString();
    if (part == markerPart)
        text = DescribeMarkers(m);
    return text;
}

using WavMetadataTest = AudioFileTest;

TEST_F(WavMetadataTest, ChunksAsTheReaderTakesThem)
{
    BextFields full;
    full.timeReference = 2001; // its low byte is not 0: the time stops at its eight bytes all the same
    full.umid = Z("\x01\x02\xFF");
    full.history = "A=PCM,F=1000\r\n";
    BextFields filled;
    filled.timeReference = 5000;
    filled.description = std::string(256, 'd');
    filled.originator = std::string(32, 'o');
    filled.time = "";
    const std::string filledChunk = Chunk("bext", Bext(filled));
    const std::string filledTail = "bwav origination date=2026-11-23|bwav origination time=|bwav time reference=5000|"
                                   "bwav smpte umid=|bwav bwf version=2|bwav coding history=|";
    const std::string cue3 = Cue(3, CuePoint(1, 10) + CuePoint(2, 20) + CuePoint(65537, 30));
    const std::string ltxt = Bytes().U32(2).U32(44).Text("rgn ").U16(1).U16(2).U16(3).U16(1252).Text(Z("Region\0"));
    const std::string adtl = List("adtl", Label("labl", 1, Z("Intro\0")) + Label("labl", 65537, Z("Never\0"))
                                              + Label("note", 2, Z("A note\0")) + Chunk("ltxt", ltxt));
    const std::string adtlEntries = "CueLabel0Identifier=1|" + Z("CueLabel0Text=Intro\0|") + "CueLabel1Identifier=65537|"
                                    + Z("CueLabel1Text=Never\0|") + "CueNote0Identifier=2|" + Z("CueNote0Text=A note\0|")
                                    + "CueRegion0Identifier=2|CueRegion0SampleLength=44|CueRegion0Purpose=544106354|"
                                      "CueRegion0Country=1|CueRegion0Language=2|CueRegion0Dialect=3|CueRegion0CodePage=1252|"
                                    + Z("CueRegion0Text=Region\0|") + "NumCueLabels=2|NumCueNotes=1|NumCueRegions=1|MetaDataSource=WAV|";
    const std::string oneLabel = List("adtl", Label("labl", 1, "L") + Label("note", 1, "N") + Label("note", 1, "M"));
    const std::string cue2 = Cue(2, CuePoint(1, 10) + CuePoint(2, 20));
    const std::string cueEntries = "Cue0Identifier=1|Cue0Order=0|Cue0ChunkID=1635017060|Cue0ChunkStart=0|Cue0BlockStart=0|Cue0Offset=10|";
    const std::string emptyInfo = "MetaDataSource=WAV|";

    struct Case { const char* name; std::string chunks; Part part; std::string expected; }; // chunks between fmt and data
    std::vector<Case> cases = {
        { "bext keys in their order", Chunk("bext", Bext(full)), bextPart,
          "bwav description=A take|bwav originator=Recorder|bwav originator ref=REF-1|"
          "bwav origination date=2026-11-2311:22:33|" // ten characters leave no terminator
          "bwav origination time=11:22:33|bwav time reference=2001|bwav smpte umid=12255" + std::string(61, '0') + "|"
          "bwav bwf version=2|bwav coding history=A=PCM,F=1000\r\n|bwav time reference (translated HH:MM:SS.mmm)=00:00:02.001|" },
        // Texts that fill their fields run on to the first zero byte; a bext of exactly its fixed size has no history.
        { "bext of its fixed size", filledChunk, bextPart,
          "bwav description=" + std::string(256, 'd') + std::string(32, 'o') + "REF-1|bwav originator=" + std::string(32, 'o')
              + "REF-1|bwav originator ref=REF-1|" + filledTail + "bwav time reference (translated HH:MM:SS.mmm)=00:00:05.000|" },
        { "cue points", Cue(2, CuePoint(7, 1000, 500) + CuePoint(65537, 2000, 1)), cuePart,
          "NumCuePoints=2|Cue0Identifier=7|Cue0Order=500|Cue0ChunkID=1635017060|Cue0ChunkStart=0|Cue0BlockStart=0|Cue0Offset=1000|"
          "Cue1Identifier=65537|Cue1Order=1|Cue1ChunkID=1635017060|Cue1ChunkStart=0|Cue1BlockStart=0|Cue1Offset=2000|" },
        // The position is the sample offset, the identifier its low 16 bits.
        { "cue markers", Cue(2, CuePoint(7, 1000, 500) + CuePoint(65537, 2000, 1)), markerPart, "7@1000:7 1@2000:1 " },
        { "cue points alone add no list", Cue(2, CuePoint(7, 1000)), listPart, "" },
        // A count beyond the chunk stops at its end; a count below the entries reads so many.
        { "cue count beyond the chunk", Cue(5, CuePoint(1, 10) + CuePoint(2, 20)), markerPart, "1@10:1 2@20:2 " },
        { "cue count beyond the chunk, entries", Cue(5, CuePoint(1, 10)), cuePart, "NumCuePoints=5|" + cueEntries },
        { "cue count below the entries", Cue(1, CuePoint(1, 10) + CuePoint(2, 20)), markerPart, "1@10:1 " },
        { "cue count 0", Cue(0, CuePoint(1, 10)), cuePart, "NumCuePoints=0|" },
        { "cue count -3", Cue(-3, CuePoint(1, 10)), cuePart, "NumCuePoints=-3|" },
        { "cue count -3, markers", Cue(-3, CuePoint(1, 10)), markerPart, "" },
        // A second cue chunk replaces the entries and adds its markers.
        { "second cue chunk", cue2 + Cue(1, CuePoint(1, 10)), cuePart, "NumCuePoints=1|" + cueEntries },
        { "second cue chunk, markers", cue2 + Cue(1, CuePoint(3, 30)), markerPart, "1@10:1 2@20:2 3@30:3 " },
        { "adtl texts", cue3 + adtl, infoPart, adtlEntries },
        { "adtl texts in the list", cue3 + adtl, listPart, adtlEntries },
        // Marker 2 is named by the ltxt, the last text for it; the label for 65537 names nobody,
        // while the third cue point, cut to identifier 1, takes the label of 1.
        { "adtl names the markers", cue3 + adtl, markerPart, Z("1@10:Intro\0 2@20:Region\0 1@30:Intro\0 ") },
        { "a cue chunk after its list keeps the decimal labels", adtl + cue3, markerPart, "1@10:1 2@20:2 1@30:1 " },
        // One label counts as one; two notes of one marker count as two.
        { "one label", Cue(1, CuePoint(1, 10)) + oneLabel, infoPart,
          "CueLabel0Identifier=1|CueLabel0Text=L|CueNote0Identifier=1|CueNote0Text=N|CueNote1Identifier=1|CueNote1Text=M|"
          "NumCueLabels=1|NumCueNotes=2|" + emptyInfo },
        { "INFO with even lengths",
          List("INFO", Sub("INAM", "Title!") + Sub("iart", "Me") + Sub("ICMT", Z("ab\0\0")) + Sub("Iart", "Us") + Sub("YEAR", "2026")),
          listPart, "INAM=Title!|IART=Us|" + Z("ICMT=ab\0\0|") + "YEAR=2026|" + emptyInfo },
        { "info in lower case", List("info", Sub("ISFT", "sj")), listPart, "ISFT=sj|" + emptyInfo },
        // No pad byte is passed over: after the odd value the headers are read one byte off, and nothing more matches.
        { "INFO odd value", List("INFO", Sub("INAM", "Odd") + std::string(1, '\0') + Sub("IART", "Me")), listPart, "INAM=Odd|" + emptyInfo },
        // Nor is an unknown identifier's payload: it is read as the next header.
        { "INFO unknown identifier", List("INFO", Sub("ABCD", Sub("IART", "Me") + "xx") + Sub("INAM", "No")), listPart, "IART=Me|" + emptyInfo },
        // A value stated longer than the list is cut to what was left before its size field,
        // and so takes four bytes of what follows; a size of 0 or below ends the list.
        { "INFO value longer than the list", List("INFO", Sub("INAM", "Cuts", 100)), listPart, "INAM=Cutsdata|" + emptyInfo },
        { "INFO negative size", List("INFO", Sub("INAM", "", 0xFFFFFFFF) + Sub("IART", "Me")), listPart, "" },
    };
    for (const std::string& list : { List("adtl", ""), List("adtl", Chunk("abcd", "xy")), List("wxyz", Sub("INAM", "N")) })
    {
        cases.push_back({ "a list that adds nothing", Cue(1, CuePoint(1, 10)) + list, listPart, "" });
        cases.push_back({ "a list that adds nothing, info", Cue(1, CuePoint(1, 10)) + list, infoPart, "" });
        cases.push_back({ "a list that adds nothing, markers", Cue(1, CuePoint(1, 10)) + list, markerPart, "1@10:1 " });
    }
    const std::pair<uint64_t, std::string> times[] = {
        { 0, "00:00:00.000" },           { 3600000, "01:00:00.000" },
        { 1600, "00:00:02.-400" },       // seconds rounded, milliseconds what is left
        { 59600, "00:01:00.-400" },      // 60 seconds carry into the minutes
        { 3599600, "01:00:00.-400" },    // and 60 minutes into the hours
        { 4294967296, "1193:02:47.296" }, // the high 32 bits take part
        { 90061001, "25:01:01.001" },
    };
    for (const auto& [timeReference, text] : times)
    {
        BextFields f;
        f.timeReference = timeReference;
        cases.push_back({ "translated time", Chunk("bext", Bext(f)), timePart, std::to_string(timeReference) + " " + text });
    }
    for (const Case& c : cases)
    {
        const auto reader = Open<WavFileReader>(Riff(fmt + c.chunks + data));
        ASSERT_TRUE(reader) << c.name;
        EXPECT_EQ(Describe(*reader, c.part), c.expected) << c.name;
        EXPECT_EQ(reader->getNumSamples(), 3u) << c.name;
        EXPECT_EQ(reader->getMetadata().hasBext, c.chunks.compare(0, 4, "bext") == 0) << c.name;
    }

    // A cue chunk cut short by the end of the file reads zeros for what is missing.
    std::string cut = Riff(fmt + data + Cue(1, CuePoint(5, 10)));
    cut.resize(cut.size() - 26);
    EXPECT_EQ(Describe(*Open<WavFileReader>(cut), cuePart), "NumCuePoints=1|");

    // No rate yet: the time isn't translated, and the key stays with an empty value.
    const auto reader = Open<WavFileReader>(Riff(filledChunk + fmt + data));
    EXPECT_EQ(Describe(*reader, bextPart).substr(Describe(*reader, bextPart).find("bwav origination date")),
              filledTail + "bwav time reference (translated HH:MM:SS.mmm)=|");
}

TEST_F(WavMetadataTest, Wave64BextAndList)
{
    BextFields f;
    f.timeReference = 1000;
    const auto reader = Open<WavFileReader>(Wave64(W64Chunk(W64Id("fmt "), Fmt(1, 1, 1000, 16)) + W64Chunk(W64Id("bext"), Bext(f))
                                                   + W64Chunk(w64List, "INFO" + Sub("INAM", "Name")) + W64Chunk(W64Id("data"), Pcm16({ 1, 2, 3 }))));
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->getMetadata().isW64 && reader->getMetadata().hasBext);
    EXPECT_EQ(Describe(*reader, timePart), "1000 00:00:01.000");
    EXPECT_EQ(reader->getMetadata().bextEntries.get("bwav originator"), "Recorder");
    EXPECT_EQ(Describe(*reader, listPart), "INAM=Name|MetaDataSource=WAV|");
    EXPECT_EQ(reader->getNumSamples(), 3u);
}

TEST_F(WavMetadataTest, AxmlAndChnaChunks)
{
    const std::string entry1 = Bytes().U16(1).Text("ATU_00000001").Text("AT_00031001_01").Text("AP_00031001").U8(0x70);
    const std::string entry2 = Bytes().U16(2).Field("", 12).Field("ref", 14).Field("", 11).U8(0);
    const std::string chna = Bytes().U16(2).U16(1).Text(entry1).Text(entry2).Text("rest"); // 4 + 80 + 4: two entries
    auto reader = Open<WavFileReader>(Riff(fmt + Chunk("axml", Z("<axml/>\0")) + Chunk("chna", chna) + data));
    EXPECT_EQ(reader->getMetadata().axmlText, Z("<axml/>\0"));
    const ChnaData& table = reader->getChnaData();
    EXPECT_TRUE(table.numTracks == 2 && table.numUids == 1);
    ASSERT_EQ(table.trackIndices.GetSize(), 2u);
    EXPECT_TRUE(table.trackIndices[0] == 1 && table.trackIndices[1] == 2);
    EXPECT_TRUE(table.trackUids[0] == "ATU_00000001" && table.trackUids[1] == ""); // all zero bytes
    EXPECT_EQ(table.trackRefs[0], "AT_00031001_01");
    EXPECT_EQ(table.trackRefs[1], "ref" + std::string(11, '\0')); // other bytes: all of them
    EXPECT_TRUE(table.packRefs[0] == "AP_00031001" && table.packRefs[1] == "");
    EXPECT_EQ(reader->getNumSamples(), 3u);

    // A later chna replaces the table.
    reader = Open<WavFileReader>(Riff(fmt + Chunk("chna", chna) + Chunk("chna", Bytes().U16(5).U16(6)) + data));
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
        chna.trackUids = Split("ATU_00000001,ATU_000000020000 too long", ',', true);
        chna.trackRefs = Split("AT_00031001_01,short", ',', true);
        chna.packRefs = Split("AP_00031001,AP_0003100X too long", ',', true);
        writer->setAdmChunks("<adm/>", chna);
        AudioBuffer<float> buffer(1, 3);
        for (int i = 0; i < 3; ++i)
            buffer.GetWritePointer(0)[i] = float(i + 1) / 32768.0f;
        ASSERT_TRUE(writer->writeSamples(buffer, 0, 3, false));
    }
    // Three entries, as many as the larger count; the texts padded or cut to 12, 14 and 11 bytes.
    const std::string expectedChna = Bytes().Text("chna").U32(4 + 3 * 40).U16(3).U16(2)
        .U16(1).Text("ATU_00000001").Text("AT_00031001_01").Text("AP_00031001").U8(0x70)
        .U16(2).Text("ATU_00000002").Field("short", 14).Text("AP_0003100X").U8(0x70)
        .U16(0).Field("", 37).U8(0x70);
    const std::string expectedAxml = Bytes().Text("axml").U32(8).Text(Z("<adm/>\0\0"));
    const std::string samples = Pcm16({ 1, 2, 3 });
    std::string header = WavWriterHeader(1, 44100, 16, 6);
    header.replace(4, 4, LittleEndian(96 + 6 + expectedChna.size() + expectedAxml.size(), 4));
    const std::string bytes = ReadWholeFile(folder / "adm.wav");
    EXPECT_EQ(bytes, header + samples + expectedChna + expectedAxml);

    // The reader takes them back.
    const auto reader = Open<WavFileReader>(bytes);
    ASSERT_EQ(reader->getChnaData().trackUids.GetSize(), 3u);
    EXPECT_EQ(reader->getChnaData().trackUids[1], "ATU_00000002");
    EXPECT_EQ(reader->getMetadata().axmlText, Z("<adm/>\0\0"));
}

/** A dbmd chunk that parses: version, one skipped segment, the terminator. */
const std::string soundDbmd = Chunk("dbmd", Bytes().U32(0x01000007).U8(1).U16(2).Text("ab").U8(0x99).U8(0));
/** A dbmd chunk whose Atmos segment has a wrong checksum. */
const std::string faultyDbmd = Chunk("dbmd", Bytes().U32(0x01000007).U8(9).U16(248).Text(std::string(248, '\0')).U8(0).U8(0));

TEST_F(WavMetadataTest, DbmdIsAGateOnly)
{
    // A sound chunk changes nothing; the reader hands the chunk's own size to the parser,
    // whose refusals (their cases are in the dbmd tests) stop the opening.
    const auto gated = Open<WavFileReader>(Riff(fmt + soundDbmd + data));
    const AudioFilesMetadata& m = gated->getMetadata();
    EXPECT_TRUE(m.numSamples == 3 && m.sampleRate == 1000.0);
    EXPECT_TRUE(!m.hasBext && m.listEntries.size() == 0 && m.markers.IsEmpty() && m.axmlText.IsEmpty());

    std::string large = Bytes().U32(0x01000007).U8(0);
    large.resize(6144, '\x11');
    EXPECT_EQ(Open<WavFileReader>(Riff(fmt + Chunk("dbmd", large) + data))->getNumSamples(), 3u);
    EXPECT_EQ(Refusal<WavFileReader>(Riff(fmt + Chunk("dbmd", large + "x") + data)), "Invalid chunk size for 'dbmd'");
    EXPECT_EQ(Refusal<WavFileReader>(Riff(fmt + faultyDbmd + data)), "invalid checksum");
    // A chunk size of 2 GiB or more.
    EXPECT_EQ(Refusal<WavFileReader>(Riff(fmt + Chunk("dbmd", Bytes().U32(1).U8(0), 0x80000000))), "Invalid chunk size for 'dbmd'");
}

TEST_F(WavMetadataTest, MalformedChunksNeverCrash)
{
    // Hostile sizes, sub-chunks that overlap or run past their list or the file: each file
    // opens wherever the chunk stands (the fuzz targets go further).
    std::vector<std::string> chunks;
    for (const char* id : { "bext", "cue ", "LIST", "axml", "chna" })
        for (const uint64_t size : { 0ull, 1ull, 3ull, 4ull, 27ull, 601ull, 0x7FFFFFFFull, 0xFFFFFFF0ull, 0xFFFFFFFFull })
            chunks.push_back(Chunk(id, "INFOadtl", int64_t(size)));
    for (const std::string type : { "adtl", "INFO" })
        for (const uint64_t size : { 0ull, 3ull, 19ull, 0x7FFFFFFFull, 0x80000000ull, 0xFFFFFFFCull, 0xFFFFFFFFull })
        {
            const std::string subs = Sub("labl", "abcdefgh", int64_t(size)) + Sub("ltxt", "abc", int64_t(size))
                                     + Sub("note", "", int64_t(size)) + Sub("INAM", "x", int64_t(size));
            for (const int64_t listSize : { int64_t(-1), int64_t(0xFFFFFFFF), int64_t(6) })
                chunks.push_back(Chunk("LIST", type + subs, listSize));
        }
    chunks.push_back(Cue(0x7FFFFFFF, CuePoint(1, 1, 1)));
    chunks.push_back(Chunk("chna", Bytes().U16(0xFFFF).U16(0xFFFF).Text(std::string(30, 'x'))));

    for (const std::string& chunk : chunks)
    {
        const std::string files[] = { Riff(fmt + chunk + data), Riff(fmt + data + chunk),
                                      Wave64(W64Chunk(W64Id("fmt "), Fmt(1, 1, 1000, 16)) + W64Chunk(W64Id("bext"), chunk)
                                             + W64Chunk(w64List, chunk.substr(8)) + W64Chunk(W64Id("data"), Pcm16({ 1 }))) };
        for (const std::string& bytes : files)
            EXPECT_EQ(Refusal<WavFileReader>(bytes), "(no exception)") << chunk.substr(0, 4);
        // After the data, the chunk cannot hide the samples.
        EXPECT_EQ(Open<WavFileReader>(files[1])->getNumSamples(), 3u);
    }
}

// ---------------------------------------------------------------------------------------
// The dbmd parser

constexpr uint32_t sync = 0xF8726FBD;
constexpr uint32_t version = DolbyAtmosMetadata::supportedDbmdVersion;

/** A segment: identifier, 16-bit size, payload, and the checksum byte that makes size and payload sum to 0. */
std::string Segment(int id, const std::string& payload, int checksumError = 0)
{
    unsigned sum = payload.size() & 0xFF;
    for (const char c : payload)
        sum += uint8_t(c);
    return Bytes().U8(uint64_t(id)).U16(payload.size()).Text(payload).U8((256 - sum % 256 + checksumError) % 256);
}

/** The payload of an Atmos segment of size bytes, its fields set. */
std::string AtmosPayload(const std::string& tool, int major, int minor, int micro, uint8_t warpByte, size_t size = 248)
{
    std::string p(248, '\x5A');
    p.replace(32, 64, Bytes().Field(tool, 64).s);
    p.replace(96, 3, std::string { char(major), char(minor), char(micro) });
    p[152] = char(warpByte);
    p.resize(size, '\x5A');
    return p;
}

const std::vector<uint8_t> trims { 0xFF, 0xFE, 0x01, 0x00, 0x03, 0x02, 0x81, 0x80, 0x11 };

/** A supplemental payload: sync, the objects' count, the trim records, the render bytes, extra bytes. */
std::string SupplementalPayload(uint32_t syncWord, const std::vector<uint8_t>& renderBytes, size_t extra = 0)
{
    Bytes b;
    b.U32(syncWord).U16(renderBytes.size()).U8(0xEE);
    for (const uint8_t t : trims)
        b.U8(t).Text(std::string(14, '\x33'));
    b.Text(std::string(renderBytes.size(), '\x44'));
    for (const uint8_t r : renderBytes)
        b.U8(r);
    return b.Text(std::string(extra, '\x55'));
}

/** A chunk body: version, segments, the terminating identifier 0. */
std::string Body(const std::string& segments, uint32_t bodyVersion = version)
{
    return Bytes().U32(bodyVersion).Text(segments).U8(0);
}

/** The outcome of parsing a body from a file. */
struct Parse
{
    DolbyAtmosMetadata metadata {};
    std::string message;   // empty when it parsed
    std::string signature; // of the function that threw
    std::string report;    // what the exception printed
    int64_t position = 0;  // the reader's position afterwards
};

class DolbyAtmosMetadataTest : public ::testing::Test
{
protected:
    /** Parses fileBytes with chunkSize from the start of a file holding them. */
    Parse Run(const std::string& fileBytes, int chunkSize)
    {
        WriteWholeFile(folder / "chunk.bin", fileBytes);
        FileReader reader(File(String(folder / "chunk.bin")));
        Parse parse;
        StreamCapture err(std::cerr);
        try
        {
            parse.metadata = DolbyAtmosMetadata::CreateFrom(reader, chunkSize);
        }
        catch (const Exception& e)
        {
            parse.message = e.GetMessage().GetStdString();
            parse.signature = e.GetFunctionSignature().GetStdString();
        }
        parse.report = err.GetText();
        parse.position = reader.GetPosition();
        return parse;
    }

    Parse Run(const std::string& body) { return Run(body, int(body.size())); }

    TemporaryFolder folder;
};

/** What a parse found: the segments read, the tool with its version and warp mode, the objects' render modes, the trims. */
std::string Describe(const DolbyAtmosMetadata& m)
{
    std::ostringstream text;
    if (m.hasAtmosSegment)
        text << "atmos " << m.contentCreationTool << " " << m.toolVersionMajor << "." << m.toolVersionMinor << "."
             << m.toolVersionMicro << " warp " << m.warpMode << " ";
    if (m.hasSupplementalSegment)
    {
        text << "render";
        for (int i = 0; i < m.numObjects; ++i)
            text << " " << m.objectBinauralRenderMode[i];
        text << " trims";
        for (const int32_t mode : m.trimMode)
            text << " " << mode;
    }
    return text.str();
}

TEST_F(DolbyAtmosMetadataTest, SegmentsReadAndSkipped)
{
    const std::string trimModes = " trims 1 0 1 0 1 0 1 0 1";
    std::vector<uint8_t> render(128); // 128 objects at most
    std::string renderModes = "render";
    for (size_t i = 0; i < render.size(); ++i)
    {
        render[i] = uint8_t(i * 37);
        renderModes += ' ' + std::to_string(render[i] & 7);
    }
    // A segment of only the sync word and the count: the skipped byte is its checksum, the
    // trim records come from the bytes after it, and the walk goes on behind them.
    std::string records;
    for (const uint8_t t : trims)
        records += Bytes().U8(t).Text(std::string(14, '\0')).s;
    std::string largest = Body(Segment(9, AtmosPayload("x", 1, 2, 3, 0)));
    largest.resize(6144, '\xAB');
    const std::string atmos = Body(Segment(9, AtmosPayload("x", 1, 0, 0, 0)));
    // A chunk size of -1 stands for the body's size, which is also where the reader ends.
    struct Case { std::string body; int chunkSize; std::string expected; };
    std::vector<Case> cases = {
        // Skipped segments' checksums are not looked at; a repeated segment overrides the first;
        // the tool's name ends after its 64 bytes; the upper five bits of the modes are dropped.
        { Body(Segment(1, "skip me", 1) + Segment(200, "", 7) + Segment(9, AtmosPayload(std::string(64, 'T'), 4, 2, 17, 0xFB))
               + Segment(10, SupplementalPayload(sync, { 5, 5 })) + Segment(10, SupplementalPayload(sync, { 0x00, 0xF9, 0x07, 0xFC }, 3))),
          -1, "atmos " + std::string(64, 'T') + " 4.2.17 warp 3 render 0 1 7 4" + trimModes },
        // The sample chunk of the test data, which also seeds the fuzzer.
        { ReadWholeFile(KVO_TEST_DATA_DIR "/atmos-dbmd.bin"), -1, "atmos Sample Tool 1.2.3 warp 1 render 0 1 2 trims 0 1 0 1 0 1 0 1 0" },
        // A first identifier of 0 reads nothing; whatever follows the terminator is not looked at.
        { Body("") + Segment(9, "too short"), -1, "" },
        { Body(Segment(10, SupplementalPayload(sync, render))), -1, renderModes + trimModes },
        { Body(Segment(10, Bytes().U32(sync).U16(0)) + records), -1, "render" + trimModes },
        // 6144 bytes at most: what follows is not read.
        { largest + "tail", 6144, "atmos x 1.2.3 warp 0 " },
        // Of a size of 260 only the low byte, 4, counts in the checksum.
        { Body(Segment(10, SupplementalPayload(sync, {}, 260 - 142))), -1, "render" + trimModes },
        // A file that ends before the stated size: the walk keeps to the bytes read.
        { atmos, int(atmos.size()) + 100, "atmos x 1.0.0 warp 0 " },
    };
    for (const uint32_t accepted : { 0x01000007u, 0x00FFFFFFu, 0x01000006u, 0x00000000u })
        cases.push_back({ Body("", accepted), -1, "" });
    for (const Case& c : cases)
    {
        const Parse parse = Run(c.body, c.chunkSize == -1 ? int(c.body.size()) : c.chunkSize);
        ASSERT_EQ(parse.message, "") << parse.report;
        EXPECT_EQ(Describe(parse.metadata), c.expected);
        EXPECT_EQ(parse.position, c.chunkSize == -1 ? int64_t(c.body.size()) : std::min<int64_t>(c.chunkSize, c.body.size()));
    }
}

TEST_F(DolbyAtmosMetadataTest, Refusals)
{
    const std::string overrun = "Segment runs past the end of 'dbmd' chunk";
    const std::string badChecksum = "invalid checksum";
    const std::string atmos = Body(Segment(9, AtmosPayload("x", 1, 0, 0, 0)));
    const std::string supplemental = Body(Segment(10, SupplementalPayload(sync, { 1, 2 })));
    const std::string badSync = SupplementalPayload(0x12345678, { 1 });
    std::string largest = Body("");
    largest.resize(6145, '\xAB');
    std::vector<uint8_t> render(129, 1);
    // A chunk size of -1 stands for the body's size.
    struct Case { std::string body; int chunkSize; std::string message; std::string function; };
    std::vector<Case> cases = {
        // Refused before a byte is read, as is a size of 2 GiB or more, which arrives negative.
        { largest, -1, "Invalid chunk size for 'dbmd'", "CreateFrom" },
        { largest, -2, "Invalid chunk size for 'dbmd'", "CreateFrom" },
        { "", -1, "Truncated 'dbmd' chunk", "CreateFrom" },
        { Z("\x07\x00\x00"), -1, "Truncated 'dbmd' chunk", "CreateFrom" },
        { Bytes().U32(version).Text(Segment(1, "abc")), -1, "Missing end of segments in 'dbmd' chunk", "CreateFrom" },
        // A supplemental segment whose checksum is the chunk's last byte is read whole.
        { Bytes().U32(version).Text(Segment(10, SupplementalPayload(sync, { 1 }))), -1, "Missing end of segments in 'dbmd' chunk", "CreateFrom" },
        { Bytes().U32(version).U8(1).U8(5), -1, overrun, "readLittleEndianField" }, // half a size
        { Bytes().U32(version).U8(1).U16(100).Text("abc"), -1, overrun, "readLittleEndianField" },
        // Read segments that lack their checksum byte.
        { atmos.substr(0, atmos.size() - 2), -1, overrun, "parseDolbyAtmosMetadata" },
        { supplemental.substr(0, supplemental.size() - 2), -1, overrun, "parseDolbyAtmosSplmlMetadata" },
        { atmos.substr(0, 100), int(atmos.size()), overrun, "parseDolbyAtmosMetadata" },
        { Body(Segment(10, Bytes().U32(sync).U16(0))), -1, overrun, "readLittleEndianField" },
        // Segment 9 is 248 bytes or refused, whatever its checksum says.
        { Body(Segment(9, AtmosPayload("x", 1, 0, 0, 0, 247))), -1, "unsupported segment size", "parseDolbyAtmosMetadata" },
        { Body(Segment(9, AtmosPayload("x", 1, 0, 0, 0, 249))), -1, "unsupported segment size", "parseDolbyAtmosMetadata" },
        { Body(Segment(9, "")), -1, "unsupported segment size", "parseDolbyAtmosMetadata" },
        { Body(Segment(9, AtmosPayload("x", 1, 0, 0, 0), 1)), -1, badChecksum, "parseDolbyAtmosMetadata" },
        // Segment 10's checksum is looked at before its sync word.
        { Body(Segment(10, badSync, 1)), -1, badChecksum, "parseDolbyAtmosSplmlMetadata" },
        { Body(Segment(10, badSync)), -1, "Bad DASMS Sync", "parseDolbyAtmosSplmlMetadata" },
        // With the high byte of a size of 260 the sum would be one more.
        { Body(Segment(10, SupplementalPayload(sync, {}, 260 - 142), 255)), -1, badChecksum, "parseDolbyAtmosSplmlMetadata" },
        // 129 objects with a sound checksum: refused by the count.
        { Body(Segment(10, SupplementalPayload(sync, render))), -1, "Too many objects", "parseDolbyAtmosSplmlMetadata" },
    };
    for (const uint32_t newer : { 0x01000008u, 0x02000000u, 0x01010000u, 0x01000100u })
        cases.push_back({ Body("", newer), -1, "Newer (unsupported) version for 'dbmd' chunk", "CreateFrom" });
    for (const Case& c : cases)
    {
        const Parse parse = Run(c.body, c.chunkSize == -1 ? int(c.body.size()) : c.chunkSize);
        EXPECT_EQ(parse.message, c.message) << c.function << " " << c.body.size();
        EXPECT_NE(parse.report.find("\n" + parse.message + "\n"), std::string::npos) << parse.report;
        EXPECT_NE(parse.signature.find("DolbyAtmosMetadata::" + c.function + "("), std::string::npos) << parse.signature;
        if (c.function == "CreateFrom" && c.message.rfind("Invalid", 0) == 0)
        {
            EXPECT_EQ(parse.position, 0);
        }
    }
}

} // namespace
} // namespace kvo::testing
