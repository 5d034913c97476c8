#include "audiofiles/KvoWavFileReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "audiofiles/KvoByteOrder.h"
#include "audiofiles/KvoDolbyAtmosMetadata.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "core/KvoException.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

using Guid = std::array<uint8_t, 16>;

constexpr uint32_t FourCC(const char (&text)[5]) { return LittleEndianFourCC(text); }

/** A Wave64 chunk's GUID: its name's four bytes, then the twelve that every chunk but riff and list shares. */
constexpr Guid Wave64Guid(const char (&name)[5])
{
    return { uint8_t(name[0]), uint8_t(name[1]), uint8_t(name[2]), uint8_t(name[3]), 0xF3, 0xAC, 0xD3, 0x11,
             0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A };
}

constexpr Guid riffGuid { 0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                          0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
constexpr Guid listGuid { 0x6C, 0x69, 0x73, 0x74, 0x2F, 0x91, 0xCF, 0x11,
                          0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 };
constexpr Guid waveGuid = Wave64Guid("wave");

/** The Wave64 chunks the reader knows, with the RIFF identifiers their payloads are read as. */
constexpr std::pair<Guid, uint32_t> wave64Chunks[] {
    { Wave64Guid("fmt "), FourCC("fmt ") }, { Wave64Guid("data"), FourCC("data") },
    { Wave64Guid("fact"), FourCC("fact") }, { Wave64Guid("bext"), FourCC("bext") },
    { Wave64Guid("junk"), FourCC("junk") }, { listGuid, FourCC("LIST") },
};

/** The identifier of a chunk the reader doesn't know, in either form. */
constexpr uint32_t unknownChunk = 0;

// Subformats of the extensible format.
constexpr Guid pcmSubformat { 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                              0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
constexpr Guid floatSubformat { 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71 };
constexpr Guid ambisonicSubformat { 0x01, 0x00, 0x00, 0x00, 0x21, 0x07, 0xD3, 0x11,
                                    0x86, 0x44, 0xC8, 0xC1, 0xCA, 0x00, 0x00, 0x00 };

constexpr uint16_t extensibleTag = 0xFFFE;
constexpr int64_t extensibleFormatSize = 40;
constexpr int64_t wave64HeaderSize = 24;
constexpr int64_t largestPosition = std::numeric_limits<int64_t>::max();

/**
    position + offset, held at the largest position instead of overflowing. Sizes in a
    header are believed, but one near 2^64 must not wrap a file offset round; the reader's
    seek clamps the result to the end of the file anyway.
*/
int64_t AddClamped(int64_t position, uint64_t offset)
{
    const uint64_t room = uint64_t(largestPosition - position);
    return offset >= room ? largestPosition : position + int64_t(offset);
}

uint16_t ReadUInt16(FileReader& reader) { return uint16_t(ReadLittleEndian(reader, 2)); }
uint32_t ReadUInt32(FileReader& reader) { return uint32_t(ReadLittleEndian(reader, 4)); }
uint64_t ReadUInt64(FileReader& reader) { return ReadLittleEndian(reader, 8); }

/** A signed 16-bit field widened with its sign into an unsigned 32-bit one. */
uint32_t ReadSigned16AsUInt32(FileReader& reader) { return uint32_t(int32_t(int16_t(ReadUInt16(reader)))); }

Guid ReadGuid(FileReader& reader)
{
    Guid guid {};
    reader.Read(guid.data(), int64_t(guid.size()));
    return guid;
}

void Skip(FileReader& reader, int64_t numBytes) { reader.SetPosition(reader.GetPosition() + numBytes); }

/** The RIFF identifier a Wave64 chunk's GUID stands for; unknownChunk for one the reader doesn't know. */
uint32_t Wave64ChunkIdentifier(const Guid& guid)
{
    for (const auto& [known, identifier] : wave64Chunks)
        if (guid == known)
            return identifier;
    return unknownChunk;
}

/**
    Bytes from a Wave64 payload to the next chunk: the length rounded up to 8 bytes. Wave64
    files have always been walked with this sum done in single precision and kept to 32
    bits, so beyond 2^24 eight-byte units it rounds and from 4 GiB on it wraps; only what
    follows such a chunk is affected.
*/
uint32_t Wave64Step(int64_t length)
{
    const float units = std::ceil(float(length) * 0.125f);
    return uint32_t(uint64_t(units) * 8);
}

bool IsCompressedFormatReadAsPcm(uint16_t tag)
{
    switch (tag)
    {
        case 6: case 7: case 0x31: case 0x86: case 0xA10D:
        case 0x674F: case 0x6750: case 0x6751: case 0x676F: case 0x6770: case 0x6771:
        case 0x564C: case 0xF1AC:
            return true;
        default:
            return false;
    }
}

// ---------------------------------------------------------------------------------------
// Metadata helpers

/**
    numBytes at the reader's position as text, zero bytes included. A size beyond the file
    gives what the file still holds, so a hostile size never decides an allocation.
*/
String ReadText(FileReader& reader, int64_t numBytes)
{
    numBytes = std::min(numBytes, reader.GetTotalLength() - reader.GetPosition());
    if (numBytes <= 0)
        return {};
    MemoryBlock block;
    const int64_t numRead = reader.ReadIntoMemoryBlock(block, numBytes);
    return numRead > 0 ? String(reinterpret_cast<const char*>(block.data), size_t(numRead)) : String();
}

/** The fixed part of a bext chunk, before its coding history. */
constexpr int64_t bextFixedSize = 602;
// The text fields run from the description to the end of the time; a text that fills its
// field carries on into the next one, and at the latest stops there.
constexpr size_t bextTextEnd = 338;

/** The zero-terminated text that starts at offset of the bext chunk's fixed bytes. */
String BextText(const std::array<char, bextFixedSize>& bytes, size_t offset)
{
    const std::string_view field(bytes.data() + offset, bextTextEnd - offset);
    return String(field.substr(0, field.find('\0')));
}

/** The UMID's bytes in decimal, one after the other; empty when that gives only '0's. */
String UmidText(const std::array<char, bextFixedSize>& bytes)
{
    String text;
    for (size_t i = 348; i < 412; ++i)
        text += FromInteger(uint32_t(uint8_t(bytes[i])));
    return ContainsOnly(text, '0') ? String() : text;
}

/** A part of the translated time as an integer; held within 64 bits, which a huge reference at a low rate would leave. */
long long Whole(double value)
{
    constexpr double limit = 9.2e18;
    return (long long)(std::clamp(value, -limit, limit));
}

/**
    The time reference as "HH:MM:SS.mmm". The seconds are rounded while the milliseconds are
    what is left after them, so from half a second on the milliseconds come out negative:
    1.6 s reads "00:00:02.-400". Files have always been labelled that way.
*/
String TranslateTimeReference(int64_t timeReference, double sampleRate)
{
    const double ms = double(timeReference) * 1000.0 / sampleRate;
    double hours = std::floor(ms / 1000.0 / 3600.0);
    double minutes = std::floor((ms / 1000.0 - hours * 3600) / 60.0);
    double seconds = std::round(ms / 1000.0) - (hours * 60 + minutes) * 60;
    if (seconds == 60)
    {
        seconds = 0;
        if (++minutes == 60)
        {
            minutes = 0;
            ++hours;
        }
    }
    const double millis = std::floor(ms - hours * 3600000 - minutes * 60000 - seconds * 1000);

    char text[96];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%03lld", Whole(hours), Whole(minutes), Whole(seconds),
                  Whole(millis));
    return text;
}

// The INFO identifiers understood, in the order they are tried.
constexpr std::array<const char*, 81> infoIdentifiers {
    "IARL", "IART", "IBSU", "ICNM", "CMNT", "COMM", "ICMT", "ICMS", "ICOP", "ICDS",
    "ICNT", "ICRP", "ICRD", "IDIT", "ICAS", "IDIM", "DIRC", "IDST", "IDPI", "IEDT",
    "IAS8", "CODE", "TCDO", "IENG", "IAS5", "IAS1", "IAS4", "GENR", "IKEY", "LANG",
    "TLEN", "ILGT", "LOCA", "ILIU", "ILGU", "IMED", "IMBI", "IMBU", "IMIT", "IMIU",
    "IMUS", "IAS9", "PRT2", "TORG", "PRT1", "IPRO", "IPRD", "IPDS", "ISDT", "RATE",
    "AGES", "IRTD", "IRIP", "ISGN", "IAS2", "IAS7", "ISHP", "IAS6", "ISFT", "DISP",
    "ISRC", "ISRF", "ISTR", "STAR", "TCOD", "STAT", "ISBJ", "TAPE", "ITCH", "IAS3",
    "ISMP", "INAM", "IPRT", "TRCK", "TURL", "VMAJ", "VMIN", "TVER", "IWMU", "IWRI",
    "YEAR",
};

/** The INFO key an identifier stands for, its bytes upper-cased; null for one not understood. */
const char* InfoKeyFor(uint32_t identifier)
{
    char upper[4];
    for (int i = 0; i < 4; ++i)
    {
        const char c = char(identifier >> (8 * i));
        upper[i] = c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
    }
    for (const char* key : infoIdentifiers)
        if (std::memcmp(key, upper, 4) == 0)
            return key;
    return nullptr;
}

/** A chna text field: empty when all its bytes are zero, otherwise all of them. */
String ReadChnaField(FileReader& reader, size_t width)
{
    std::array<char, 14> bytes {};
    reader.Read(bytes.data(), int64_t(width));
    const bool isEmpty = std::all_of(bytes.begin(), bytes.begin() + width, [](char c) { return c == 0; });
    return isEmpty ? String() : String(bytes.data(), width);
}

} // namespace

WavFileReader::WavFileReader(const File& file) : PcmFileReader(file)
{
    metadata.formatName = "WAV File";
    readHeader();
    checkReadable();
}

WavFileReader::~WavFileReader() = default;

// ---------------------------------------------------------------------------------------
// Header

void WavFileReader::readHeader()
{
    metadata.isRf64 = false;
    metadata.isW64 = false;
    int64_t end = 0;

    switch (ReadUInt32(*fileReader))
    {
        case FourCC("RF64"):
            Skip(*fileReader, 4); // the real size is in ds64
            metadata.isRf64 = true;
            break;
        case FourCC("RIFF"):
        {
            const uint32_t size = ReadUInt32(*fileReader);
            end = fileReader->GetPosition() + size;
            break;
        }
        case FourCC("riff"):
            end = readWave64Header();
            break;
        case FourCC("BW64"):
            throw Exception("BW64 chunk is not handled", KVO_CODE_LOCATION);
        default:
            return;
    }
    readWaveForm(end);
}

int64_t WavFileReader::readWave64Header()
{
    uint8_t tail[12] {};
    fileReader->Read(tail, 12);
    if (!std::equal(std::begin(tail), std::end(tail), riffGuid.begin() + 4))
        throw Exception("invalid riff chunk for w64", KVO_CODE_LOCATION);

    // The size counts the 24 bytes of this header too, so end lies 24 bytes past the
    // file's end and the chunk loop stops when the file is exhausted.
    const uint64_t size = ReadUInt64(*fileReader);
    const int64_t end = AddClamped(fileReader->GetPosition(), size);
    if (ReadGuid(*fileReader) != waveGuid)
        throw Exception("invalid wave chunk for w64", KVO_CODE_LOCATION);
    metadata.isW64 = true;
    return end;
}

void WavFileReader::readWaveForm(int64_t end)
{
    const int64_t start = fileReader->GetPosition();
    if (!metadata.isW64 && ReadUInt32(*fileReader) != FourCC("WAVE"))
        return;
    if (metadata.isRf64)
        end = readDs64(start);
    if (fileReader->GetPosition() >= end)
        return;

    readChunks(end);
}

int64_t WavFileReader::readDs64(int64_t start)
{
    // Without a usable ds64 the sizes are unknown: end stays 0 and no chunk is read.
    const ChunkHeader chunk = readChunkHeader(false);
    if (chunk.identifier != FourCC("ds64") || chunk.size < 28)
        return 0;

    const int64_t end = AddClamped(start, ReadUInt64(*fileReader));
    dataSize = int64_t(ReadUInt64(*fileReader));
    fileReader->SetPosition(chunk.next);
    return end;
}

// ---------------------------------------------------------------------------------------
// Chunks

WavFileReader::ChunkHeader WavFileReader::readChunkHeader(bool isWave64)
{
    ChunkHeader chunk;
    if (isWave64)
    {
        chunk.identifier = Wave64ChunkIdentifier(ReadGuid(*fileReader));
        chunk.size = int64_t(ReadUInt64(*fileReader) - wave64HeaderSize);
    }
    else
    {
        chunk.identifier = ReadUInt32(*fileReader);
        chunk.size = ReadUInt32(*fileReader);
    }
    chunk.payload = fileReader->GetPosition();
    if (isWave64)
        chunk.next = chunk.size < 0 ? chunk.payload : AddClamped(chunk.payload, Wave64Step(chunk.size));
    else
        chunk.next = AddClamped(chunk.payload, uint64_t(chunk.size) + uint64_t(chunk.size & 1));
    return chunk;
}

void WavFileReader::readChunks(int64_t end)
{
    // Each pass reads a chunk header, so the position moves on until exhaustion or end.
    while (!fileReader->IsExhausted())
    {
        ChunkHeader chunk = readChunkHeader(metadata.isW64);
        if (!readChunk(chunk))
            return;
        fileReader->SetPosition(chunk.next);
        if (fileReader->GetPosition() >= end)
            return;
    }
}

bool WavFileReader::readChunk(ChunkHeader& chunk)
{
    // A Wave64 size that doesn't cover the chunk's own header would send the walk backwards.
    if (chunk.size < 0 && chunk.identifier != unknownChunk)
        refuse(KVO_CODE_LOCATION);

    switch (chunk.identifier)
    {
        case FourCC("fmt "): readFormatChunk(chunk.size); break;
        case FourCC("data"): readDataChunk(chunk); break;
        case FourCC("bext"): readBextChunk(chunk.size); break;
        case FourCC("cue "): readCueChunk(chunk.size); break;
        case FourCC("LIST"): readListChunk(chunk.next); break;
        case FourCC("axml"): readAxmlChunk(chunk.size); break;
        case FourCC("chna"): readChnaChunk(chunk.size); break;
        case FourCC("dbmd"):
            // Kept for nothing: a faulty chunk refuses the file, a sound one changes nothing.
            DolbyAtmosMetadata::CreateFrom(*fileReader, int(chunk.size));
            break;

        // Known chunks that carry nothing the reader uses.
        case FourCC("smpl"):
        case FourCC("inst"):
        case FourCC("INST"):
        case FourCC("acid"):
        case FourCC("Trkn"):
            break;
        case FourCC("fact"):
        case FourCC("junk"):
            // Wave64 names these among its chunks; to RIFF they are unknown ones.
            if (metadata.isW64)
                break;
            [[fallthrough]];

        default:
            // An unknown chunk of size 0 ends the walk.
            return chunk.next > fileReader->GetPosition();
    }
    return true;
}

void WavFileReader::readDataChunk(ChunkHeader& chunk)
{
    int64_t length = chunk.size;
    if (metadata.isRf64)
    {
        // An RF64 data chunk's own size is a placeholder; ds64 holds the real one.
        length = dataSize;
        if (length < 0)
            refuse(KVO_CODE_LOCATION);
        if (length > 0)
            chunk.next = AddClamped(chunk.payload, uint64_t(length) + uint64_t(length & 1));
    }
    else
    {
        dataSize = length;
    }
    dataStart = chunk.payload;
    setNumSamplesFromData(length);
}

// ---------------------------------------------------------------------------------------
// Format and data

void WavFileReader::readFormatChunk(int64_t size)
{
    const uint16_t tag = ReadUInt16(*fileReader);
    metadata.numChannels = ReadSigned16AsUInt32(*fileReader);
    const int32_t rate = int32_t(ReadUInt32(*fileReader));
    metadata.sampleRate = rate;
    const int32_t bytesPerSecond = int32_t(ReadUInt32(*fileReader));
    Skip(*fileReader, 2); // block align: the width follows from the bits instead
    metadata.bitsPerSample = ReadSigned16AsUInt32(*fileReader);

    setFrameWidth(rate, bytesPerSecond);
    // A frame passes through the staging block whole, so a wider one can't be read; a
    // negative channel count declares one, whatever the tag then says.
    if (bytesPerFrame > rawBlockSize)
        refuse(KVO_CODE_LOCATION);
    applyFormatTag(tag, size);
}

void WavFileReader::setFrameWidth(int32_t rate, int32_t bytesPerSecond)
{
    if (metadata.bitsPerSample <= 64)
    {
        // Unsigned 32-bit arithmetic: a negative channel count gives a frame far too wide.
        bytesPerFrame = int32_t((metadata.numChannels * metadata.bitsPerSample) >> 3);
        return;
    }

    // A bits field out of range (negative included): the frame follows from the byte rate.
    if (rate == 0 || metadata.numChannels == 0)
        refuse(KVO_CODE_LOCATION);
    const int64_t width = int64_t(bytesPerSecond) / rate;
    bytesPerFrame = int32_t(std::min<int64_t>(width, std::numeric_limits<int32_t>::max()));
    metadata.bitsPerSample = uint32_t(int64_t(bytesPerFrame) * 8) / metadata.numChannels;
}

void WavFileReader::applyFormatTag(uint16_t tag, int64_t size)
{
    if (tag == 1)
        return; // PCM
    if (tag == 3)
    {
        metadata.isFloat = true;
        return;
    }
    // Compressed formats are let through undecoded: their bytes read as PCM of the stated width.
    if (IsCompressedFormatReadAsPcm(tag))
        return;
    if (tag == extensibleTag && size >= extensibleFormatSize)
        readFormatExtension();
    else
        bytesPerFrame = 0; // a sample format that can't be read
}

void WavFileReader::readFormatExtension()
{
    Skip(*fileReader, 4);    // extension size and valid bits
    ReadUInt32(*fileReader); // channel mask: no use for it here
    const Guid subformat = ReadGuid(*fileReader);

    if (subformat == floatSubformat)
        metadata.isFloat = true;
    else if (subformat == ambisonicSubformat)
        isAmbisonicFormat = true;
    else if (subformat != pcmSubformat)
        bytesPerFrame = 0;
}

void WavFileReader::setNumSamplesFromData(int64_t length)
{
    // Believed as stated: frames the file lacks read as zero bytes later.
    metadata.numSamples = bytesPerFrame > 0 ? uint64_t(length / bytesPerFrame) : 0;
}

// ---------------------------------------------------------------------------------------
// bext, cue, LIST, axml, chna

void WavFileReader::readBextChunk(int64_t size)
{
    std::array<char, bextFixedSize> bytes {};
    fileReader->Read(bytes.data(), bextFixedSize);
    const String codingHistory = size > bextFixedSize ? ReadText(*fileReader, size - bextFixedSize) : String();

    uint64_t timeReference = 0;
    for (size_t i = 345; i >= 338; --i)
        timeReference = timeReference << 8 | uint8_t(bytes[i]);
    const uint32_t version = uint32_t(uint8_t(bytes[346])) | uint32_t(uint8_t(bytes[347])) << 8;
    // Without a rate (fmt comes later in the file) the time can't be translated.
    const String translatedTime = metadata.sampleRate > 0.0
                                      ? TranslateTimeReference(int64_t(timeReference), metadata.sampleRate)
                                      : String();

    StringDictionary entries;
    entries.set("bwav description", BextText(bytes, 0));
    entries.set("bwav originator", BextText(bytes, 256));
    entries.set("bwav originator ref", BextText(bytes, 288));
    entries.set("bwav origination date", BextText(bytes, 320));
    entries.set("bwav origination time", BextText(bytes, 330));
    entries.set("bwav time reference", FromInteger(timeReference));
    entries.set("bwav smpte umid", UmidText(bytes));
    entries.set("bwav bwf version", FromInteger(version));
    entries.set("bwav coding history", codingHistory);
    entries.set("bwav time reference (translated HH:MM:SS.mmm)", translatedTime);

    metadata.bextEntries = entries;
    metadata.hasBext = metadata.bextEntries.size() > 0;
}

void WavFileReader::readCueChunk(int64_t size)
{
    // Entries past the end of the file are not looked for: the chunk ends where the file does.
    const int64_t length = std::max<int64_t>(0, std::min(size, fileReader->GetTotalLength() - fileReader->GetPosition()));
    std::vector<uint8_t> bytes(size_t(std::max<int64_t>(length, 28)), 0);
    fileReader->Read(bytes.data(), length);
    const auto field = [&bytes](int64_t offset) {
        return uint32_t(bytes[size_t(offset)]) | uint32_t(bytes[size_t(offset + 1)]) << 8
               | uint32_t(bytes[size_t(offset + 2)]) << 16 | uint32_t(bytes[size_t(offset + 3)]) << 24;
    };

    const int32_t count = int32_t(field(0));
    cueEntries.clear();
    cueEntries.set("NumCuePoints", FromInteger(count));
    const int64_t numEntries = std::min<int64_t>(count, (length - 4) / 24);
    static constexpr const char* names[] { "Identifier", "Order", "ChunkID", "ChunkStart", "BlockStart", "Offset" };

    for (int64_t i = 0; i < numEntries; ++i)
        for (int64_t f = 0; f < 6; ++f)
            cueEntries.set("Cue" + FromInteger(uint64_t(i)) + names[f], FromInteger(field(4 + 24 * i + 4 * f)));

    for (int64_t i = 0; i < numEntries; ++i)
    {
        const uint16_t identifier = uint16_t(field(4 + 24 * i));
        metadata.addMarker(identifier, field(4 + 24 * i + 20), FromInteger(uint32_t(identifier)));
    }
}

void WavFileReader::readListChunk(int64_t end)
{
    const uint32_t listType = ReadUInt32(*fileReader);
    if (listType == FourCC("info") || listType == FourCC("INFO"))
        readInfoList(end);
    else if (listType == FourCC("adtl") && fileReader->GetPosition() < end)
        readAdtlList(end);

    if (infoEntries.size() > 0)
        infoEntries.set("MetaDataSource", "WAV");
    attachCueTexts();
    metadata.listEntries = infoEntries;
}

void WavFileReader::readInfoList(int64_t end)
{
    // Values take no pad byte and unknown identifiers are not skipped: the next header is
    // read where the last one's reading stopped. Every round reads at least an identifier,
    // and at the end of the file the size reads as 0, which stops the list.
    while (fileReader->GetPosition() < end)
    {
        const uint32_t identifier = ReadUInt32(*fileReader);
        const int64_t left = end - fileReader->GetPosition();
        if (left < 1)
            continue;
        const int64_t length = std::min<int64_t>(int32_t(ReadUInt32(*fileReader)), left);
        if (length < 1)
            return;
        if (const char* key = InfoKeyFor(identifier))
            infoEntries.set(key, ReadText(*fileReader, length));
    }
}

void WavFileReader::readAdtlList(int64_t end)
{
    uint32_t labels = 0;
    uint32_t notes = 0;
    uint32_t regions = 0;
    // Each round reads a sub-chunk header, so the position moves on until end or the file's end.
    while (fileReader->GetPosition() < end && !fileReader->IsExhausted())
    {
        const ChunkHeader chunk = readChunkHeader(false);
        if (chunk.identifier == FourCC("labl"))
            readCueText("CueLabel" + FromInteger(labels++), chunk.size);
        else if (chunk.identifier == FourCC("note"))
            readCueText("CueNote" + FromInteger(notes++), chunk.size);
        else if (chunk.identifier == FourCC("ltxt"))
            readCueRegion("CueRegion" + FromInteger(regions++), chunk.size);
        fileReader->SetPosition(chunk.next);
    }

    if (labels > 0)
        infoEntries.set("NumCueLabels", FromInteger(labels));
    if (notes > 0)
        infoEntries.set("NumCueNotes", FromInteger(notes));
    if (regions > 0)
        infoEntries.set("NumCueRegions", FromInteger(regions));
}

void WavFileReader::readCueText(const String& prefix, int64_t size)
{
    infoEntries.set(prefix + "Identifier", FromInteger(ReadUInt32(*fileReader)));
    infoEntries.set(prefix + "Text", ReadText(*fileReader, size - 4));
}

void WavFileReader::readCueRegion(const String& prefix, int64_t size)
{
    infoEntries.set(prefix + "Identifier", FromInteger(ReadUInt32(*fileReader)));
    infoEntries.set(prefix + "SampleLength", FromInteger(ReadUInt32(*fileReader)));
    infoEntries.set(prefix + "Purpose", FromInteger(ReadUInt32(*fileReader)));
    infoEntries.set(prefix + "Country", FromInteger(uint32_t(ReadUInt16(*fileReader))));
    infoEntries.set(prefix + "Language", FromInteger(uint32_t(ReadUInt16(*fileReader))));
    infoEntries.set(prefix + "Dialect", FromInteger(uint32_t(ReadUInt16(*fileReader))));
    infoEntries.set(prefix + "CodePage", FromInteger(uint32_t(ReadUInt16(*fileReader))));
    infoEntries.set(prefix + "Text", ReadText(*fileReader, size - 20));
}

void WavFileReader::attachCueTexts()
{
    // The last adtl entry that names a marker's identifier gives the marker its label.
    for (AudioFilesMetadata::Marker* marker : metadata.markers)
    {
        const String identifier = FromInteger(uint32_t(marker->identifier));
        for (uint64_t i = 0; i < infoEntries.size(); ++i)
        {
            const String& key = infoEntries.keyAt(i);
            if (!EndsWith(key, "Identifier") || !(infoEntries.valueAt(i) == identifier))
                continue;
            String textKey = key;
            ReplaceLast(textKey, "Identifier", "Text");
            if (infoEntries.contains(textKey))
                marker->label = infoEntries.get(textKey);
        }
    }
}

void WavFileReader::readAxmlChunk(int64_t size)
{
    metadata.axmlText = ReadText(*fileReader, size);
}

void WavFileReader::readChnaChunk(int64_t size)
{
    ChnaData table;
    table.numTracks = ReadUInt16(*fileReader);
    table.numUids = ReadUInt16(*fileReader);
    const int64_t numEntries = (size - 4) / 40;
    // Entries wholly past the end of the file are not looked for.
    for (int64_t i = 0; i < numEntries && !fileReader->IsExhausted(); ++i)
    {
        table.trackIndices.PushBack(ReadUInt16(*fileReader));
        table.trackUids.Add(ReadChnaField(*fileReader, 12));
        table.trackRefs.Add(ReadChnaField(*fileReader, 14));
        table.packRefs.Add(ReadChnaField(*fileReader, 11));
        Skip(*fileReader, 1); // the pad byte
    }
    chnaData = std::move(table);
}

// ---------------------------------------------------------------------------------------
// Validation

void WavFileReader::checkReadable() const
{
    if (!isValid())
        refuse(KVO_CODE_LOCATION);
    // Frames to deliver need a width to step by: a later fmt chunk may have taken it away.
    if (metadata.numSamples > 0 && bytesPerFrame <= 0)
        refuse(KVO_CODE_LOCATION);
}

void WavFileReader::refuse(const CodeLocation& location) const
{
    throw Exception("file " + Quoted(fileReader->GetFile().GetFullPath()) + " is not a valid WAV file", location);
}

} // namespace kvo
