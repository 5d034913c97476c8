#include "audiofiles/KvoAiffFileWriter.h"

#include <cstring>

#include "audiofiles/KvoByteOrder.h"
#include "audiofiles/KvoPcmSampleCoding.h"
#include "files/KvoFileWriter.h"

namespace kvo
{

namespace
{

void putText(uint8_t* dest, const char (&text)[5]) noexcept
{
    std::memcpy(dest, text, 4);
}

} // namespace

void EncodeAiffSampleRate(double rate, uint8_t bytes[10]) noexcept
{
    std::memset(bytes, 0, 10);

    // Also catches NaN, which has no integer part to encode.
    if (!(rate > 1.0))
    {
        bytes[0] = 0x3F;
        bytes[1] = 0xFF;
        bytes[2] = 0x80;
        return;
    }

    bytes[0] = 0x40;
    if (rate >= 1073741824.0)
    {
        bytes[1] = 29;
        return;
    }

    // Normalise the integer part so that its highest set bit becomes the mantissa's
    // explicit integer bit; k counts the bits passed over from bit 30 down. The rate is
    // above 1 here, so some bit is set and k stays at most 30.
    const uint32_t n = uint32_t(int32_t(rate));
    int k = 0;
    while ((n & (uint32_t(1) << (30 - k))) == 0)
        ++k;
    const uint32_t mantissaTop = n << (k + 1);

    bytes[1] = uint8_t(29 - k);
    StoreBigEndian(bytes + 2, mantissaTop, 4);
}

AiffFileWriter::AiffFileWriter(const File& destination, double sampleRate, unsigned int numChannels, int bitsDepth)
    : AudioFileWriter(destination, sampleRate, numChannels, bitsDepth)
{
    metadata.formatName = "AIFF File";
    forms = ByteForms::aiff;
    // AIFF holds integers only: 32-bit output is clipped and scaled like any other width.
    metadata.isFloat = false;
    writeHeader();
}

AiffFileWriter::~AiffFileWriter()
{
    // After a failed write the position stands behind the header, so this pad byte lands
    // on the first sample byte; the header written next is right either way.
    if ((bytesWritten & 1) != 0)
        fileWriter->WriteByte(0);
    writeHeader();
}

void AiffFileWriter::writeHeader()
{
    // The sizes are 32-bit fields; the cap on the data keeps them from wrapping.
    const uint32_t bytesPerFrame = (metadata.bitsPerSample * metadata.numChannels) >> 3;
    const uint32_t dataBytes = bytesPerFrame * uint32_t(metadata.numSamples);
    const uint32_t paddedBytes = dataBytes + (dataBytes & 1);

    uint8_t header[headerSize] = {};
    putText(header, "FORM");
    StoreBigEndian(header + 4, paddedBytes + 46, 4);
    putText(header + 8, "AIFF");
    putText(header + 12, "COMM");
    StoreBigEndian(header + 16, 18, 4);
    StoreBigEndian(header + 20, metadata.numChannels, 2);
    StoreBigEndian(header + 22, uint32_t(metadata.numSamples), 4);
    StoreBigEndian(header + 26, metadata.bitsPerSample, 2);
    EncodeAiffSampleRate(metadata.sampleRate, header + 28);
    putText(header + 38, "SSND");
    StoreBigEndian(header + 42, paddedBytes + 8, 4);
    // Offset and block size stay 0: the samples follow at once.

    fileWriter->SetPosition(headerPosition);
    fileWriter->Write(header, headerSize);
}

bool AiffFileWriter::admitsFrames(uint64_t numSamples, uint64_t& bytes) const noexcept
{
    // Worked out before anything is packed, so that a call that passes the cap costs no
    // memory, and without overflow for any count.
    const uint64_t bitsPerFrame = uint64_t(metadata.bitsPerSample) * metadata.numChannels;
    if (bytesWritten >= maxDataBytes)
        return false;
    if (bitsPerFrame != 0 && numSamples > (maxDataBytes * 8) / bitsPerFrame)
        return false;

    bytes = (bitsPerFrame * numSamples) >> 3;
    return bytes < maxDataBytes - bytesWritten;
}

} // namespace kvo
