#include "Pairs.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace bench
{

namespace
{

constexpr int kPairs = 9;
constexpr int kQuickPairs = 3;
constexpr double kShortestTurn = 0.03;
constexpr double kMostRounds = 500;

double MedianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Enough rounds for the faster side to be measured, but not so many that the slower one takes for ever.
int RoundsFor(double fasterSeconds, double slowerSeconds)
{
    const double turn = IsQuick() ? kShortestTurn / 3 : kShortestTurn;
    const double rounds = std::min(turn / std::max(fasterSeconds, 1e-9), 10 * turn / std::max(slowerSeconds, 1e-9));
    return static_cast<int>(std::clamp(rounds, 1.0, kMostRounds));
}

struct Turns
{
    std::vector<double> library;
    std::vector<double> plain;
    std::vector<double> ratio;
};

void AddPair(Turns& turns, int rounds, bool& libraryFirst, const Side& library, const Side& plain)
{
    double librarySeconds = 0;
    double plainSeconds = 0;
    for (int round = 0; round < rounds; ++round)
    {
        if (libraryFirst)
        {
            librarySeconds += library();
            plainSeconds += plain();
        }
        else
        {
            plainSeconds += plain();
            librarySeconds += library();
        }
        libraryFirst = !libraryFirst;
    }
    turns.library.push_back(librarySeconds / rounds);
    turns.plain.push_back(plainSeconds / rounds);
    turns.ratio.push_back(librarySeconds / plainSeconds);
}

std::string NameOf(const std::string& work, std::size_t size)
{
    return work + "/" + std::to_string(size);
}

template <typename Run>
void Register(const std::string& name, Run run)
{
    benchmark::RegisterBenchmark(name.c_str(), run)
        ->Iterations(IsQuick() ? kQuickPairs : kPairs)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

bool IsQuick()
{
    return std::getenv("TARNWICKHDF_BENCH_QUICK") != nullptr;
}

std::vector<std::size_t> Sizes(std::vector<std::size_t> sizes)
{
    if (IsQuick() && sizes.size() > 1)
    {
        sizes.pop_back();
    }
    return sizes;
}

std::string PathOf(const std::string& name)
{
    const char* folder = std::getenv("TARNWICKHDF_BENCH_DIR");
    return std::string(folder == nullptr ? "." : folder) + "/" + name;
}

std::vector<std::string> Names(const std::string& prefix, std::size_t count)
{
    std::vector<std::string> names;
    names.reserve(count);
    char digits[32];
    for (std::size_t i = 0; i < count; ++i)
    {
        std::snprintf(digits, sizeof(digits), "%06zu", i);
        names.push_back(prefix + digits);
    }
    return names;
}

Texts::Texts(std::vector<std::string> texts) : strings(std::move(texts))
{
    for (const std::string& text : strings)
    {
        pointers.push_back(text.c_str());
    }
}

void Compare(const std::string& work, std::size_t size, double target, Side library, Side plain)
{
    const auto run = [=](benchmark::State& state)
    {
        const auto [faster, slower] = std::minmax({library(), plain()});
        const int rounds = RoundsFor(faster, slower);
        bool libraryFirst = true;
        Turns turns;
        for (auto _ : state)
        {
            AddPair(turns, rounds, libraryFirst, library, plain);
            state.SetIterationTime(turns.library.back());
        }
        std::vector<double> sorted = turns.ratio;
        std::sort(sorted.begin(), sorted.end());
        state.counters["library_s"] = MedianOf(turns.library);
        state.counters["plain_s"] = MedianOf(turns.plain);
        state.counters["ratio"] = MedianOf(turns.ratio);
        state.counters["ratio_q1"] = sorted[sorted.size() / 4];
        state.counters["ratio_q3"] = sorted[sorted.size() - 1 - sorted.size() / 4];
        state.counters["target"] = target;
        state.counters["pairs"] = static_cast<double>(turns.ratio.size());
    };
    Register(NameOf(work, size), run);
}

void Measure(const std::string& work, std::size_t size, Side side)
{
    const auto run = [=](benchmark::State& state)
    {
        const double once = side();
        const int rounds = RoundsFor(once, once);
        std::vector<double> seconds;
        for (auto _ : state)
        {
            double turn = 0;
            for (int round = 0; round < rounds; ++round)
            {
                turn += side();
            }
            seconds.push_back(turn / rounds);
            state.SetIterationTime(seconds.back());
        }
        state.counters["alone_s"] = MedianOf(seconds);
    };
    Register(NameOf(work, size), run);
}

} // namespace bench

int main(int argc, char** argv)
{
    bench::RegisterWork();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
