// DolbyAtmosMetadata: dbmd chunk bodies built byte by byte, parsed from a file as the WAV
// reader hands them over; every refusal with its text and the function that raises it.

#include "KvoTestUtilities.h"
#include "audiofiles/KvoDolbyAtmosMetadata.h"
#include "files/KvoFileReader.h"

namespace kvo::testing
{
namespace
{

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
