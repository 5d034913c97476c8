#include "audiofiles/KvoMp3Frame.h"

#include <algorithm>

#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{
namespace
{

// Bitrates in kbit/s: MPEG-1, then MPEG-2 (shared by MPEG-2.5), by layer, by index.
constexpr int16_t bitrates[2][3][16] = {
    { { 0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0 },
      { 0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0 },
      { 0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0 } },
    { { 0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0 },
      { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0 },
      { 0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0 } }
};

constexpr int32_t sampleRates[9] = { 44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000 };

/** The gain of a granule: global_gain as a table entry, with the channel-sum and mid/side scales folded in. */
const float* granuleGain(uint32_t globalGain, int32_t msStereo, int32_t channelSelect)
{
    const float* gain = GetMp3Tables().gainTable + (256 - int32_t(globalGain));
    if (channelSelect == 3)
        gain += 4; // the 1/2 of the sum of both channels
    if (msStereo == 1)
        gain += 2; // the 1/sqrt(2) of mid/side
    return gain;
}

/** Table selects and block kind of a window-switched granule; regions are set by the caller. */
void readWindowSwitching(Mp3GranuleInfo& info, Mp3BitReader& bits)
{
    info.block_type = bits.readBits(2);
    info.mixed_block_flag = bits.readBits(1);
    info.table_select[0] = bits.readBits(5);
    info.table_select[1] = bits.readBits(5);
    info.table_select[2] = 0;
    for (int32_t window = 0; window < 3; ++window)
        info.fullGain[window] = info.gain + 8 * int32_t(bits.readBits(3));
}

/** Table selects and regions of a long-block granule, the regions from the rate's long band boundaries. */
void readRegions(Mp3GranuleInfo& info, Mp3BitReader& bits, int32_t sampleRateIndex)
{
    for (uint32_t& select : info.table_select)
        select = bits.readBits(5);
    const uint32_t region0 = bits.readBits(4);
    const uint32_t region1 = bits.readBits(3);
    const int16_t* longBounds = Mp3Tables::bandTable[sampleRateIndex] + Mp3Tables::longBoundaries;
    info.region1Start = uint32_t(longBounds[region0 + 1]) / 2;
    info.region2Start = uint32_t(longBounds[std::min<uint32_t>(region0 + region1 + 2, 22)]) / 2;
    info.block_type = 0;
    info.mixed_block_flag = 0;
}

/** The fields both versions share from part2_3_length to the regions; returns the window switching flag. */
bool readGranuleStart(Mp3GranuleInfo& info, Mp3BitReader& bits, int32_t compressBits, int32_t msStereo,
                      int32_t channelSelect)
{
    info.part2_3_length = bits.readBits(12);
    info.big_values = std::min<uint32_t>(bits.readBits(9), 288);
    info.gain = granuleGain(bits.readBits(8), msStereo, channelSelect);
    info.scalefac_compress = bits.readBits(compressBits);
    return bits.readBits(1) != 0;
}

} // namespace

void parseFrameHeader(Mp3FrameHeader& header, uint32_t word)
{
    header.isMpeg25 = ((word >> 20) & 1) == 0;
    header.lowSampleRate = header.isMpeg25 ? 1 : int32_t(((word >> 19) & 1) == 0);
    header.layer = 4 - int32_t((word >> 17) & 3);
    header.hasCrc = ((word >> 16) & 1) == 0;
    const int32_t rateBits = int32_t((word >> 10) & 3);
    header.sampleRateIndex = rateBits + (header.isMpeg25 ? 6 : 3 * header.lowSampleRate);
    header.bitrateIndex = int32_t((word >> 12) & 15);
    header.padding = int32_t((word >> 9) & 1);
    header.mode = int32_t((word >> 6) & 3);
    header.modeExtension = int32_t((word >> 4) & 3);
    header.numChannels = header.mode == 3 ? 1 : 2;

    if (header.bitrateIndex == 0)
    {
        header.frameBytes = 0; // free format: the size comes from the distance to the next header
        return;
    }
    const int32_t bitrate = Mp3Bitrate(header.lowSampleRate, header.layer, header.bitrateIndex);
    const int32_t rate = Mp3SampleRate(header.sampleRateIndex);
    if (header.layer == 1)
        header.frameBytes = (bitrate * 12000 / rate + header.padding) * 4 - 4;
    else if (header.layer == 2)
        header.frameBytes = bitrate * 144000 / rate + header.padding - 4;
    else
        header.frameBytes = bitrate * 144000 / (rate << header.lowSampleRate) + header.padding - 4;
}

int32_t Mp3SampleRate(int32_t sampleRateIndex)
{
    return sampleRates[std::clamp(sampleRateIndex, 0, 8)];
}

int32_t Mp3Bitrate(int32_t lowSampleRate, int32_t layer, int32_t bitrateIndex)
{
    return bitrates[lowSampleRate != 0][std::clamp(layer, 1, 3) - 1][bitrateIndex & 15];
}

void readSideInfoMpeg1(Mp3SideInfo& sideInfo, Mp3BitReader& bits, int32_t numChannels, int32_t msStereo,
                       int32_t sampleRateIndex, int32_t channelSelect)
{
    sideInfo.mainDataBegin = int32_t(bits.readBits(9));
    sideInfo.privateBits = int32_t(bits.readBits(numChannels == 1 ? 5 : 3));
    for (int32_t channel = 0; channel < numChannels; ++channel)
    {
        sideInfo.granules[channel][0].scfsi = -1;
        sideInfo.granules[channel][1].scfsi = int32_t(bits.readBits(4));
    }
    for (int32_t granule = 0; granule < 2; ++granule)
        for (int32_t channel = 0; channel < numChannels; ++channel)
        {
            Mp3GranuleInfo& info = sideInfo.granules[channel][granule];
            if (readGranuleStart(info, bits, 4, msStereo, channelSelect))
            {
                readWindowSwitching(info, bits);
                info.region1Start = 18;
                info.region2Start = 288;
            }
            else
                readRegions(info, bits, sampleRateIndex);
            info.preflag = bits.readBits(1);
            info.scalefac_scale = bits.readBits(1);
            info.count1table_select = bits.readBits(1);
        }
}

void readSideInfoLowRate(Mp3SideInfo& sideInfo, Mp3BitReader& bits, int32_t numChannels, int32_t msStereo,
                         int32_t sampleRateIndex, int32_t channelSelect)
{
    sideInfo.mainDataBegin = int32_t(bits.readBits(8));
    sideInfo.privateBits = int32_t(bits.readBits(numChannels == 1 ? 1 : 2));
    for (int32_t channel = 0; channel < numChannels; ++channel)
    {
        Mp3GranuleInfo& info = sideInfo.granules[channel][0];
        info.scfsi = -1;
        if (readGranuleStart(info, bits, 9, msStereo, channelSelect))
        {
            readWindowSwitching(info, bits);
            const bool lowest = sampleRateIndex == 8;
            if (info.block_type == 2)
                info.region1Start = lowest ? 36 : 18;
            else
                info.region1Start = lowest ? 54 : 27;
            info.region2Start = 288;
        }
        else
            readRegions(info, bits, sampleRateIndex);
        info.preflag = 0; // derived from scalefac_compress with the scale factors
        info.scalefac_scale = bits.readBits(1);
        info.count1table_select = bits.readBits(1);
    }
}

} // namespace kvo
