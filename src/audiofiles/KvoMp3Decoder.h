#pragma once

#include <cstdint>
#include <vector>

#include "audiofiles/KvoMp3Frame.h"
#include "audiofiles/KvoMp3LayerIII.h"
#include "audiofiles/KvoMp3Synthesis.h"
#include "files/KvoFileReader.h"

namespace kvo
{

/** The fields of a Xing or Info tag. Only the frame count and the header size are used. */
struct Mp3VbrTag
{
    uint8_t tableOfContents[100] = {};
    int32_t sampleRate = 0;
    uint32_t flags = 0;
    int32_t frames = 0;
    int32_t bytes = 0;
    int32_t quality = -1;
    int32_t headerSize = 0;
};

/**
    The decoder's view of the file: another reader of it at the same position, with a
    read-ahead buffer so that the byte-wise header search and the many small reads of a
    frame cost no system call each.
*/
class Mp3InputStream
{
public:
    explicit Mp3InputStream(const FileReader& source);

    int64_t GetTotalLength() const noexcept { return totalLength; }
    int64_t GetPosition() const noexcept { return position; }
    bool IsExhausted() const noexcept { return position >= totalLength; }
    /** Clamps to 0..length. */
    void SetPosition(int64_t newPosition) noexcept;
    /** Reads up to numBytes; the count is short at the end of the file. */
    int32_t Read(uint8_t* destination, int32_t numBytes);
    /** The next byte, or -1 at the end. */
    int32_t ReadByte()
    {
        if (position >= bufferStart && position < bufferStart + bufferLength)
            return buffer[position++ - bufferStart];
        return readByteSlow();
    }

private:
    int32_t readByteSlow();
    bool fill();

    static constexpr int32_t bufferSize = 16384;
    FileReader reader;
    int64_t totalLength = 0;
    int64_t position = 0;
    int64_t bufferStart = 0;
    int32_t bufferLength = 0;
    uint8_t buffer[bufferSize] = {};
};

/**
    The whole state of one MPEG audio stream's decoder, one plain block that never grows
    but for frameIndex. decodeStep walks a frame in four resumable stages; the layers
    decode from the byte arrays through the bit cursor and write through synthesis.
*/
class Mp3DecoderState
{
public:
    /** A decoder on another reader of source's file at the same position, reset. */
    explicit Mp3DecoderState(const FileReader& source);

    /** Distance from the stream's position to the next header, or -1; the position is left as it was. */
    int32_t findNextHeader(bool matchPrevious);
    /** Parses a Xing or Info tag from the 194 bytes of a frame; false when there is none. */
    bool parseVbrTag(const uint8_t* bytes);
    /**
        Moves the stream on by one stage: 0 when a frame was just decoded into out0/out1
        (samplesDone advanced), 1 for progress without samples, -1 when no header follows.
        With out0 null the frame's data are read but not decoded.
    */
    int32_t decodeStep(float* out0, float* out1, int32_t& samplesDone);
    /** Back to the state before the first frame, keeping header, frameIndex and the counts. */
    void resetStream();
    /**
        Restarts decoding at the last indexed frame at or before frame (frameIndex must not be
        empty): the stream goes to its header and the state is reset as at the start of a
        stream. Returns the frame decoding restarts at.
    */
    uint64_t restartAtOrBefore(uint64_t frame);

    Mp3FrameHeader header;
    Mp3VbrTag tag;
    Mp3InputStream stream;
    int32_t totalFrames = 0;
    int32_t currentFrame = 0;
    bool vbrTagValid = false;
    bool headerParsed = false;
    bool sideInfoParsed = false;
    bool dataParsed = false;
    bool needResync = false;
    bool isFreeFormat = false;
    bool wasFreeFormat = false;
    int32_t sideInfoBytes = 0;
    int32_t dataBytes = 0;
    int32_t frameBytesLeft = 0;
    int32_t lastFreeFormatBytes = 0;

    Mp3SideInfo sideInfo;
    Mp3SynthesisState synthesis;
    Mp3Layer3State layer3;

    std::vector<uint64_t> frameIndex; ///< file position of the header of frames 0, 4, 8...

private:
    // The bit reservoir. A frame's bytes go to one of two arrays behind the cursor; its main
    // data may begin in the bytes that went before it into the other array.
    /** Reads numBytes from the stream to the cursor; what the file lacks arrives as zeros. */
    void readToCursor(int32_t numBytes);
    /** Starts the next frame's bytes at the front of the other array. */
    void switchByteArrays();
    /**
        Appends the bytes the next frame's main data may reach (a frame's tail, or what stands
        between two frames) behind the cursor: the last limit of numBytes; the rest are skipped.
        Returns the number kept.
    */
    int32_t keepForReservoir(int32_t numBytes, int32_t limit);
    /** Copies the reservoir the side information asks for in front of the cursor; false when it is not there. */
    bool takeReservoir();

    int32_t parseHeaderStage();
    void parseSideInfoStage();
    void decodeDataStage(float* out0, float* out1, int32_t& samplesDone);
    int32_t finishFrameStage(int32_t result);
    void keepJunk(int32_t offset);

    uint8_t byteBuffers[2][mp3ByteBufferSize] = {};
    int32_t activeBuffer = 0;
    int32_t lastFrameBytes = -1; ///< bytes the last frame left in its array; -1 before the first
    Mp3BitReader bits;
};

} // namespace kvo
