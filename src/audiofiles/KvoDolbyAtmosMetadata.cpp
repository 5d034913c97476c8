#include "audiofiles/KvoDolbyAtmosMetadata.h"

#include <cstring>

#include "core/KvoException.h"
#include "core/KvoMemoryBlock.h"
#include "files/KvoFileReader.h"

namespace kvo
{
namespace
{

constexpr int atmosSegmentId = 9;
constexpr int supplementalSegmentId = 10;
constexpr int atmosSegmentSize = 248;
constexpr uint32_t supplementalSync = 0xF8726FBD;
constexpr int trimRecordSize = 15;
// Sync word, object count, one byte, the nine trim records: the objects' bytes follow.
constexpr int supplementalFixedSize = 4 + 2 + 1 + DolbyAtmosMetadata::numTrimConfigurations * trimRecordSize;

constexpr const char* overrunMessage = "Segment runs past the end of 'dbmd' chunk";

/** True when the checksum byte after the payload makes the size's low byte and the payload sum to 0. */
bool HasValidChecksum(const int segmentSize, const unsigned char* payload)
{
    unsigned int sum = unsigned(segmentSize) & 0xFF;
    for (int i = 0; i < segmentSize; ++i)
        sum += payload[i];
    return payload[segmentSize] == ((256 - (sum & 0xFF)) & 0xFF);
}

/** True when the version's bytes, most significant first, are no greater than those understood. */
bool IsSupportedVersion(const uint32_t version)
{
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const uint32_t ours = (DolbyAtmosMetadata::supportedDbmdVersion >> shift) & 0xFF;
        const uint32_t theirs = (version >> shift) & 0xFF;
        if (theirs != ours)
            return theirs < ours;
    }
    return true;
}

/** Bytes left between cursor and end. */
int64_t Remaining(const unsigned char* cursor, const unsigned char* end)
{
    return end - cursor;
}

} // namespace

DolbyAtmosMetadata DolbyAtmosMetadata::CreateFrom(FileReader& reader, const int chunkSize)
{
    // A size of 2 GiB or more arrives negative, and is as much too large as any other.
    if (chunkSize > maxChunkSize || chunkSize < 0)
        throw Exception("Invalid chunk size for 'dbmd'", KVO_CODE_LOCATION);

    MemoryBlock block;
    const int64_t numRead = reader.ReadIntoMemoryBlock(block, chunkSize);
    // Fewer bytes when the file ends first: the walk keeps to those that were read.
    unsigned char* cursor = block.data;
    const unsigned char* const end = numRead > 0 ? block.data + numRead : block.data;

    DolbyAtmosMetadata metadata {};
    metadata.hasAtmosSegment = false;
    metadata.hasSupplementalSegment = false;

    if (Remaining(cursor, end) < 4)
        throw Exception("Truncated 'dbmd' chunk", KVO_CODE_LOCATION);
    if (!IsSupportedVersion(readLittleEndianField(4, &cursor, end)))
        throw Exception("Newer (unsupported) version for 'dbmd' chunk", KVO_CODE_LOCATION);

    for (;;)
    {
        if (cursor == end)
            throw Exception("Missing end of segments in 'dbmd' chunk", KVO_CODE_LOCATION);
        const int segmentId = int(readLittleEndianField(1, &cursor, end));
        if (segmentId == 0)
            break;
        const int segmentSize = int(readLittleEndianField(2, &cursor, end));

        if (segmentId == atmosSegmentId)
        {
            metadata.hasAtmosSegment = true;
            parseDolbyAtmosMetadata(segmentSize, &cursor, end, metadata);
        }
        else if (segmentId == supplementalSegmentId)
        {
            metadata.hasSupplementalSegment = true;
            parseDolbyAtmosSplmlMetadata(segmentSize, &cursor, end, metadata);
        }
        else
        {
            readLittleEndianField(segmentSize + 1, &cursor, end); // payload and checksum, unchecked
        }
    }
    return metadata;
}

void DolbyAtmosMetadata::parseDolbyAtmosMetadata(const int segmentSize, unsigned char** cursor,
                                                 const unsigned char* end, DolbyAtmosMetadata& metadata)
{
    if (segmentSize != atmosSegmentSize)
        throw Exception("unsupported segment size", KVO_CODE_LOCATION);
    if (Remaining(*cursor, end) < segmentSize + 1)
        throw Exception(overrunMessage, KVO_CODE_LOCATION);
    if (!HasValidChecksum(segmentSize, *cursor))
        throw Exception("invalid checksum", KVO_CODE_LOCATION);

    readLittleEndianField(32, cursor, end);
    std::memcpy(metadata.contentCreationTool, *cursor, 64);
    metadata.contentCreationTool[64] = '\0';
    readLittleEndianField(64, cursor, end);
    metadata.toolVersionMajor = int32_t(readLittleEndianField(1, cursor, end));
    metadata.toolVersionMinor = int32_t(readLittleEndianField(1, cursor, end));
    metadata.toolVersionMicro = int32_t(readLittleEndianField(1, cursor, end));
    readLittleEndianField(53, cursor, end);
    metadata.warpMode = int32_t(readLittleEndianField(1, cursor, end) & 7);
    readLittleEndianField(15, cursor, end);
    readLittleEndianField(80, cursor, end);
    readLittleEndianField(1, cursor, end); // the checksum byte
}

void DolbyAtmosMetadata::parseDolbyAtmosSplmlMetadata(const int segmentSize, unsigned char** cursor,
                                                      const unsigned char* end, DolbyAtmosMetadata& metadata)
{
    // The checksum comes before any look at the content.
    if (Remaining(*cursor, end) < segmentSize + 1)
        throw Exception(overrunMessage, KVO_CODE_LOCATION);
    if (!HasValidChecksum(segmentSize, *cursor))
        throw Exception("invalid checksum", KVO_CODE_LOCATION);

    if (readLittleEndianField(4, cursor, end) != supplementalSync)
        throw Exception("Bad DASMS Sync", KVO_CODE_LOCATION);
    const int numObjects = int(readLittleEndianField(2, cursor, end));
    if (numObjects > maxObjects)
        throw Exception("Too many objects", KVO_CODE_LOCATION);
    metadata.numObjects = numObjects;
    readLittleEndianField(1, cursor, end);

    for (int32_t& mode : metadata.trimMode)
    {
        mode = int32_t(readLittleEndianField(1, cursor, end) & 1);
        readLittleEndianField(trimRecordSize - 1, cursor, end);
    }
    readLittleEndianField(numObjects, cursor, end);
    for (int i = 0; i < numObjects; ++i)
        metadata.objectBinauralRenderMode[i] = int32_t(readLittleEndianField(1, cursor, end) & 7);

    // The rest of the payload and the checksum byte. A segment too short for its objects
    // has had them read from the bytes after it, and the cursor stays where they ended.
    readLittleEndianField(segmentSize - (supplementalFixedSize + 2 * numObjects) + 1, cursor, end);
}

uint32_t DolbyAtmosMetadata::readLittleEndianField(const int count, unsigned char** cursor, const unsigned char* end)
{
    if (count < 1)
        return 0;
    if (Remaining(*cursor, end) < count)
        throw Exception(overrunMessage, KVO_CODE_LOCATION);

    uint32_t value = 0;
    for (int i = (count < 4 ? count : 4) - 1; i >= 0; --i)
        value = value << 8 | (*cursor)[i];
    *cursor += count;
    return value;
}

} // namespace kvo
