// Micro-benchmarks of the MPEG audio decoder's hot loops: the synthesis filterbank and the
// 36-point IMDCT, each beside the textbook computation of the same result (precomputed cosine
// tables, plain loops), measured in the same run. The ratios printed at the end (processor time) are ours
// divided by the textbook's: below 1.0 is faster.
//
//     build/release/bench/kvo_benchmarks [--benchmark_filter=...]

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "audiofiles/KvoMp3Imdct.h"
#include "audiofiles/KvoMp3Synthesis.h"
#include "audiofiles/KvoMp3Tables.h"

namespace
{

using namespace kvo;

constexpr int rowsPerFrame = 36; // one MPEG-1 frame: 36 rows of 32 sub-bands, 1152 samples

std::vector<float> Noise(size_t count)
{
    std::mt19937 generator(7);
    std::uniform_real_distribution<float> distribution(-0.5f, 0.5f);
    std::vector<float> values(count);
    for (float& value : values)
        value = distribution(generator);
    return values;
}

// Synthesis -----------------------------------------------------------------------------------

void Synthesise(benchmark::State& state)
{
    const std::vector<float> rows = Noise(32 * rowsPerFrame);
    std::vector<float> out[2] = { std::vector<float>(32 * rowsPerFrame), std::vector<float>(32 * rowsPerFrame) };
    Mp3SynthesisState history;
    history.reset();
    for (auto _ : state)
    {
        int samplesDone = 0;
        for (int row = 0; row < rowsPerFrame; ++row)
        {
            int firstDone = samplesDone;
            synthesise(history, rows.data() + 32 * row, 0, out[0].data(), firstDone);
            synthesise(history, rows.data() + 32 * row, 1, out[1].data(), samplesDone);
        }
        benchmark::DoNotOptimize(out[0].data());
        benchmark::DoNotOptimize(out[1].data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * 32 * rowsPerFrame);
}

/** The standard's synthesis as it is usually first written: 64 x 32 matrixing, FIFO, window. */
class TextbookSynthesis
{
public:
    TextbookSynthesis()
    {
        for (int i = 0; i < 64; ++i)
            for (int k = 0; k < 32; ++k)
                matrix[i][k] = float(std::cos((16 + i) * (2 * k + 1) * std::numbers::pi / 64));
        // The standard's window: the filter's own coefficients with the textbook's signs.
        const float* stored = GetMp3Tables().synthWindow;
        for (int n = 0; n < 512; ++n)
        {
            const int tap = n % 32 <= 16 ? n : 512 - n;
            const float magnitude = std::fabs(stored[tap / 32 + 32 * (tap % 32)]);
            const int folded = n <= 256 ? n : 512 - n;
            const bool negative = (folded >= 1 && folded <= 85) || (folded >= 144 && folded <= 200);
            window[n] = (negative != ((n / 64) % 2 == 1)) ? -magnitude : magnitude;
        }
    }

    void run(const float* subbands, float* out)
    {
        std::copy_backward(v, v + 960, v + 1024);
        for (int i = 0; i < 64; ++i)
        {
            float sum = 0.0f;
            for (int k = 0; k < 32; ++k)
                sum += matrix[i][k] * subbands[k];
            v[i] = sum;
        }
        for (int j = 0; j < 32; ++j)
        {
            float sum = 0.0f;
            for (int i = 0; i < 8; ++i)
                sum += v[128 * i + j] * window[64 * i + j] + v[128 * i + 96 + j] * window[64 * i + 32 + j];
            out[j] = sum;
        }
    }

private:
    float matrix[64][32];
    float window[512];
    float v[1024] {};
};

void SynthesiseTextbook(benchmark::State& state)
{
    const std::vector<float> rows = Noise(32 * rowsPerFrame);
    std::vector<float> out[2] = { std::vector<float>(32 * rowsPerFrame), std::vector<float>(32 * rowsPerFrame) };
    TextbookSynthesis filters[2];
    for (auto _ : state)
    {
        for (int row = 0; row < rowsPerFrame; ++row)
            for (int channel = 0; channel < 2; ++channel)
                filters[channel].run(rows.data() + 32 * row, out[channel].data() + 32 * row);
        benchmark::DoNotOptimize(out[0].data());
        benchmark::DoNotOptimize(out[1].data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * 32 * rowsPerFrame);
}

// IMDCT ---------------------------------------------------------------------------------------

/** One granule of one channel: 32 sub-bands of 18 lines, long blocks. */
struct Granule
{
    std::vector<float> lines = Noise(576);
    std::vector<float> overlap[2] = { std::vector<float>(576), std::vector<float>(576) };
    std::vector<float> hybrid = std::vector<float>(576);
    int half = 0;
};

void Imdct36(benchmark::State& state)
{
    Granule granule;
    const Mp3HybridBlock block { 0, false, 32 };
    for (auto _ : state)
    {
        const int old = granule.half;
        granule.half = 1 - old;
        hybridFilterbank(granule.lines.data(), block, granule.overlap[old].data(), granule.overlap[1 - old].data(),
                         granule.hybrid.data());
        benchmark::DoNotOptimize(granule.hybrid.data());
    }
    state.SetItemsProcessed(state.iterations() * 32);
}

/** The direct IMDCT: 36 x 18 cosine table, window, overlap-add. */
void Imdct36Textbook(benchmark::State& state)
{
    float cosines[36][18];
    float window[36];
    for (int i = 0; i < 36; ++i)
    {
        window[i] = float(std::sin(std::numbers::pi / 36 * (i + 0.5)));
        for (int k = 0; k < 18; ++k)
            cosines[i][k] = float(std::cos(std::numbers::pi / 72 * (2 * i + 19) * (2 * k + 1)));
    }
    Granule granule;
    for (auto _ : state)
    {
        const int old = granule.half;
        granule.half = 1 - old;
        for (int sb = 0; sb < 32; ++sb)
        {
            const float* in = granule.lines.data() + 18 * sb;
            float block[36];
            for (int i = 0; i < 36; ++i)
            {
                float sum = 0.0f;
                for (int k = 0; k < 18; ++k)
                    sum += cosines[i][k] * in[k];
                block[i] = sum * window[i];
            }
            for (int i = 0; i < 18; ++i)
            {
                granule.hybrid[size_t(32 * i + sb)] = block[i] + granule.overlap[old][size_t(18 * sb + i)];
                granule.overlap[1 - old][size_t(18 * sb + i)] = block[18 + i];
            }
        }
        benchmark::DoNotOptimize(granule.hybrid.data());
    }
    state.SetItemsProcessed(state.iterations() * 32);
}

BENCHMARK(Synthesise);
BENCHMARK(SynthesiseTextbook);
BENCHMARK(Imdct36);
BENCHMARK(Imdct36Textbook);

/** Shows the runs as usual and keeps their times for the ratios. */
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            times[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }

    void printRatio(const std::string& ours, const std::string& peer) const
    {
        const auto a = times.find(ours);
        const auto b = times.find(peer);
        if (a != times.end() && b != times.end() && b->second > 0.0)
            std::printf("%-12s / %-20s %.2f\n", ours.c_str(), peer.c_str(), a->second / b->second);
    }

private:
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    GetMp3Tables(); // built outside the timings
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nTime ratios, ours over the textbook computation measured in this run:\n");
    reporter.printRatio("Synthesise", "SynthesiseTextbook");
    reporter.printRatio("Imdct36", "Imdct36Textbook");
    benchmark::Shutdown();
    return 0;
}
