// The metadata chunks of WAV files, built byte by byte: bext, cue, LIST (INFO and adtl),
// axml, chna and dbmd as the reader takes them, one row each; and the closing chunks of the
// writer. (The join, which carries none of it, has its rows in the join tests.)

#include "KvoTestUtilities.h"
#include "audiofiles/KvoWavFileReader.h"
#include "audiofiles/KvoWavFileWriter.h"
#include "containers/KvoAudioBuffer.h"

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

} // namespace
} // namespace kvo::testing
