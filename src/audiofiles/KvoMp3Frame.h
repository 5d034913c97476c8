#pragma once

#include <cstdint>
#include <cstring>

namespace kvo
{

/** Size of each of the decoder's two byte arrays: a 512-byte margin, a frame of up to 2880 bytes, a 512-byte tail. */
constexpr int32_t mp3ByteBufferSize = 3904;
/** Where a frame's bytes start in its array; the bytes before it take the reservoir. */
constexpr int32_t mp3FrameStart = 512;
/** The largest frame the arrays hold (MPEG-1 Layer I at 448 kbit/s, 32 kHz, padded, rounded up). */
constexpr int32_t mp3MaxFrameBytes = 2880;
/** Of a frame's tail, only this many last bytes are kept for the next frame's reservoir. */
constexpr int32_t mp3MaxTailBytes = 512;

/** The fields of one MPEG audio frame header, as parseFrameHeader leaves them. */
struct Mp3FrameHeader
{
    int32_t layer = 0;         ///< 1, 2 or 3; 0 before the first frame
    int32_t frameBytes = 0;    ///< frame size less the 4 header bytes; 0 for free format
    int32_t numChannels = 0;   ///< 1 when mode is 3, else 2
    int32_t channelSelect = -1; ///< -1 both channels, 0 left only, 1 right only, 3 the sum of both
    int32_t lowSampleRate = 0; ///< 1 for MPEG-2 and MPEG-2.5
    bool isMpeg25 = false;
    bool hasCrc = false;       ///< a 16-bit CRC word follows the header; never verified
    int32_t bitrateIndex = 0;
    int32_t sampleRateIndex = 0; ///< row of the rate table, 0 to 8
    int32_t padding = 0;
    int32_t mode = 0;
    int32_t modeExtension = 0;
    // Layer II: the sub-band count and the bit allocation table of the current frame.
    int32_t layer2Subbands = 0;
    const int16_t* layer2Allocation = nullptr;

    /** Layer III granules in a frame: 2 for MPEG-1, 1 at the low rates. */
    int32_t numGranules() const noexcept { return lowSampleRate != 0 ? 1 : 2; }
    /** Joint stereo with its mid/side switch on. */
    bool isMidSide() const noexcept { return mode == 1 && (modeExtension & 2) != 0; }
    /** Joint stereo with its intensity switch on. */
    bool isIntensityStereo() const noexcept { return mode == 1 && (modeExtension & 1) != 0; }
};

/** Fills header from a 32-bit header word. Rejects nothing: findNextHeader vets the word first. */
void parseFrameHeader(Mp3FrameHeader& header, uint32_t word);

/** Sample rate in Hz of a rate-table row: 44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000. */
int32_t Mp3SampleRate(int32_t sampleRateIndex);

/** Bitrate in kbit/s; lowSampleRate picks the MPEG-2 row, which MPEG-2.5 shares. 0 at index 0 and 15. */
int32_t Mp3Bitrate(int32_t lowSampleRate, int32_t layer, int32_t bitrateIndex);

/**
    The single cursor into the active byte array, for reading bits (most significant first)
    and for placing the bytes that arrive from the file. Bits before the array's start or
    past its end read as zero: a damaged stream may ask for more bits than any array holds,
    and for a valid stream the guard changes nothing.
*/
struct Mp3BitReader
{
    const uint8_t* bytes = nullptr; ///< the active array, mp3ByteBufferSize bytes
    int32_t bitPointer = 0;         ///< byte index into the array; may run past its end
    int32_t bitOffset = 0;          ///< bits already taken from the byte at bitPointer, 0 to 7

    /** The next count bits, count at most 17; 0 bits (and no move) for a count of 0 or less. */
    uint32_t readBits(int32_t count) noexcept
    {
        if (count <= 0)
            return 0;
        uint32_t window;
        if (bitPointer >= 0 && bitPointer + 3 <= mp3ByteBufferSize)
        {
            const uint8_t* p = bytes + bitPointer;
            window = uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
        }
        else
            window = guardedWindow();
        const uint32_t value = ((window << bitOffset) & 0xFFFFFF) >> (24 - count);
        advance(count);
        return value;
    }

    /** One bit; the Huffman walks read their codes bit by bit. */
    uint32_t readBit() noexcept
    {
        const uint32_t byte = (bitPointer >= 0 && bitPointer < mp3ByteBufferSize) ? bytes[bitPointer] : 0;
        const uint32_t bit = (byte >> (7 - bitOffset)) & 1;
        advance(1);
        return bit;
    }

    /** The next 57 bits or more without moving, at the top of the result, for the Huffman walks. */
    uint64_t peek64() const noexcept
    {
        uint64_t word = 0;
        if (bitPointer >= 0 && bitPointer + 8 <= mp3ByteBufferSize)
        {
            std::memcpy(&word, bytes + bitPointer, sizeof word);
            word = __builtin_bswap64(word); // the stream is big-endian, the machine little-endian
        }
        else
            for (int32_t i = 0; i < 8; ++i)
            {
                const int32_t index = bitPointer + i;
                word = word << 8 | ((index >= 0 && index < mp3ByteBufferSize) ? bytes[index] : 0u);
            }
        return word << bitOffset;
    }

    /** Moves on by count bits without reading them. */
    void skipBits(int32_t count) noexcept
    {
        if (count > 0)
            advance(count);
    }

private:
    void advance(int32_t count) noexcept
    {
        const int32_t total = bitOffset + count;
        // Held below any overflow: a cursor far past the array only ever reads zeros.
        bitPointer = bitPointer < (1 << 24) ? bitPointer + (total >> 3) : bitPointer;
        bitOffset = total & 7;
    }

    uint32_t guardedWindow() const noexcept
    {
        uint32_t window = 0;
        for (int32_t i = 0; i < 3; ++i)
        {
            const int32_t index = bitPointer + i;
            window = window << 8 | ((index >= 0 && index < mp3ByteBufferSize) ? bytes[index] : 0u);
        }
        return window;
    }
};

/** Side information of one channel in one granule. */
struct Mp3GranuleInfo
{
    int32_t scfsi = 0; ///< granule 0: -1 (read every scale factor); granule 1: the four bits of the stream
    uint32_t part2_3_length = 0;
    uint32_t big_values = 0; ///< limited to 288 as it is read
    uint32_t scalefac_compress = 0;
    uint32_t block_type = 0;
    uint32_t mixed_block_flag = 0;
    uint32_t table_select[3] = {};
    int32_t maxBand[4] = {}; ///< highest band + 1 per short window, [3] for long bands; set by dequantisation
    int32_t maxb = 0;        ///< sub-bands that carry signal; set by dequantisation
    uint32_t region1Start = 0; ///< in pairs of lines
    uint32_t region2Start = 0;
    uint32_t preflag = 0;
    uint32_t scalefac_scale = 0;
    uint32_t count1table_select = 0;
    const float* fullGain[3] = {}; ///< gain of each short window, into the gain table
    const float* gain = nullptr;   ///< into the gain table
};

/** Side information of one Layer III frame: two channels of two granules. */
struct Mp3SideInfo
{
    Mp3GranuleInfo granules[2][2]; ///< [channel][granule]
    int32_t mainDataBegin = 0;
    int32_t privateBits = 0; ///< stored, never used
};

/**
    Reads MPEG-1 side information at the cursor. msStereo folds the 1/sqrt(2) of mid/side,
    and a channelSelect of 3 the 1/2 of the channel sum, into each granule's gain.
*/
void readSideInfoMpeg1(Mp3SideInfo& sideInfo, Mp3BitReader& bits, int32_t numChannels, int32_t msStereo,
                       int32_t sampleRateIndex, int32_t channelSelect);

/** The same for MPEG-2 and MPEG-2.5: one granule, no scfsi, no preflag in the stream. */
void readSideInfoLowRate(Mp3SideInfo& sideInfo, Mp3BitReader& bits, int32_t numChannels, int32_t msStereo,
                         int32_t sampleRateIndex, int32_t channelSelect);

} // namespace kvo
