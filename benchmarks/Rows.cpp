#include "Rows.h"
#include "PythonPeers.h"

#include <benchmark/benchmark.h>

#include <hdf5.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

namespace
{

using bench::Row;
using bench::Side;
using bench::Turn;
using Clock = std::chrono::steady_clock;

// A turn is repeated until this much time has been measured, and pairs of turns until this much has passed.
constexpr double kSecondsOfATurn = 0.02;
constexpr double kSecondsOfPairs = 0.4;
constexpr double kSecondsOfAPeer = 0.15;
constexpr std::size_t kFewestPairs = 3;
constexpr std::size_t kMostPairs = 25;
constexpr double kMostRounds = 500;
// A size at which a turn would take longer is left out, as far as the size before can tell.
constexpr double kLongestTurn = 3.0;

Clock::time_point workBegan;
bool isCountingHeap = false;

bool IsSet(const char* name)
{
    return std::getenv(name) != nullptr;
}

// A short run tests that everything works.
bool IsQuick()
{
    return IsSet("TARNWICKHDF_BENCH_QUICK");
}

double SecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double Quartile(std::vector<double> values, std::size_t which)
{
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) * which / 4];
}

int RoundsFor(double secondsOfARound)
{
    const double wanted = IsQuick() ? kSecondsOfATurn / 10 : kSecondsOfATurn;
    return static_cast<int>(std::clamp(wanted / std::max(secondsOfARound, 1e-9), 1.0, kMostRounds));
}

// One side in one row: its first turn, which warms up and tells of the heap, and how long its other turns took.
struct Contestant
{
    std::string key;
    Side side;
    Turn first = {};
    std::vector<double> seconds = {};
    double spent = 0;
    double fastest = 0; ///< Round, on the average of a turn.

    bool IsMain() const { return key == "library" || key == "plain"; }

    void Begin(std::size_t size)
    {
        isCountingHeap = true;
        first = side(size);
        fastest = first.seconds;
        isCountingHeap = false;
    }

    // Gives the time that counts for the pairs.
    double TakeTurn(std::size_t size, int rounds)
    {
        const auto begin = Clock::now();
        double sum = 0;
        for (int round = 0; round < rounds; ++round)
        {
            sum += side(size).seconds;
        }
        seconds.push_back(sum / rounds);
        fastest = std::min(fastest, seconds.back());
        const double turn = SecondsSince(begin);
        spent += turn;
        return IsMain() ? turn : 0;
    }

    std::vector<double> RatiosTo(const Contestant& other) const
    {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < std::min(seconds.size(), other.seconds.size()); ++i)
        {
            ratios.push_back(seconds[i] / other.seconds[i]);
        }
        return ratios;
    }
};

// All sides of one row; it remembers how long each took at the size before.
class Contest
{
public:
    Contest(const Row& row, bench::PythonPeers& peers) : m_row(row)
    {
        m_sides = {{"library", row.library}, {"plain", row.plain}};
        // Users' own ways stand in the row of the best one.
        if (row.name.find(", beside ") == std::string::npos)
        {
            m_sides.insert(m_sides.end(), {{"cpp", row.cpp},
                                           {"h5py", peers.For("h5py", row.name)},
                                           {"pytables", peers.For("PyTables", row.name)}});
        }
    }

    void Run(benchmark::State& state, std::size_t size)
    {
        if (IsTooLong("plain", size) || IsTooLong("library", size))
        {
            state.SkipWithError("a turn would take too long");
            return;
        }
        std::vector<Contestant> all;
        for (const auto& [key, side] : m_sides)
        {
            if (side && !IsTooLong(key, size))
            {
                all.push_back({key, side});
            }
        }
        Measure(all, size);
        Tell(all, state);
        state.SetLabel(m_row.unit);
        state.counters["target"] = size >= m_row.targetFrom ? m_row.target : 0;
    }

private:
    bool IsTooLong(const std::string& key, std::size_t size) const
    {
        const auto last = m_last.find(key);
        if (IsSet("TARNWICKHDF_BENCH_LONG") || last == m_last.end())
        {
            return false;
        }
        const auto& [lastSize, seconds] = last->second;
        const double growth = static_cast<double>(size) / static_cast<double>(lastSize);
        return growth > 1 && seconds * growth > kLongestTurn;
    }

    // The first round of a turn finds the caches full of another side's data, so the library and plain HDF5 have as many
    // rounds in a pair of turns. First turns can be many times as slow as later ones: the fastest counts.
    static int RoundsOfMain(const std::vector<Contestant>& all)
    {
        double fastest = kLongestTurn;
        for (const Contestant& contestant : all)
        {
            fastest = contestant.IsMain() ? std::min(fastest, contestant.fastest) : fastest;
        }
        return RoundsFor(fastest);
    }

    // What disturbs the machine disturbs all: they take turns, and also in coming first.
    void Measure(std::vector<Contestant>& all, std::size_t size)
    {
        for (Contestant& contestant : all)
        {
            contestant.Begin(size);
            m_last[contestant.key] = {size, contestant.first.seconds};
        }
        const std::size_t fewestPairs = IsQuick() ? 1 : kFewestPairs;
        double spent = IsQuick() ? kSecondsOfPairs : 0;
        for (std::size_t pair = 0; pair < fewestPairs || (pair < kMostPairs && spent < kSecondsOfPairs); ++pair)
        {
            const int roundsOfMain = RoundsOfMain(all);
            for (Contestant& contestant : all)
            {
                if (contestant.IsMain() || pair == 0 || (!IsQuick() && contestant.spent < kSecondsOfAPeer))
                {
                    const bool isMain = contestant.IsMain();
                    spent += contestant.TakeTurn(size, isMain ? roundsOfMain : RoundsFor(contestant.fastest));
                }
            }
            std::reverse(all.begin(), all.end());
        }
    }

    static void Tell(std::vector<Contestant>& all, benchmark::State& state)
    {
        const auto library =
            std::find_if(all.begin(), all.end(), [](const Contestant& c) { return c.key == "library"; });
        for (const Contestant& contestant : all)
        {
            state.counters[contestant.key + "_s"] = Quartile(contestant.seconds, 2);
            state.counters[contestant.key + "_heap"] = static_cast<double>(contestant.first.heapPeak);
            state.counters[contestant.key + "_file"] = static_cast<double>(contestant.first.fileBytes);
            if (library != all.end() && contestant.key != "library")
            {
                state.counters[contestant.key + "_times"] = Quartile(contestant.RatiosTo(*library), 2);
            }
            if (library != all.end() && contestant.key == "plain")
            {
                const std::vector<double> ratios = library->RatiosTo(contestant);
                state.counters["ratio"] = Quartile(ratios, 2);
                state.counters["ratio_q1"] = Quartile(ratios, 1);
                state.counters["ratio_q3"] = Quartile(ratios, 3);
                state.counters["pairs"] = static_cast<double>(ratios.size());
            }
        }
    }

    Row m_row;
    std::vector<std::pair<std::string, Side>> m_sides;
    std::map<std::string, std::pair<std::size_t, double>> m_last;
};

void Register(const Row& row, bench::PythonPeers& peers)
{
    const auto contest = std::make_shared<Contest>(row, peers);
    const std::vector<std::size_t> sizes = IsQuick() ? std::vector<std::size_t>{row.sizes.front()} : row.sizes;
    for (const std::size_t size : sizes)
    {
        const auto run = [=](benchmark::State& state)
        {
            for (auto _ : state)
            {
                contest->Run(state, size);
            }
        };
        benchmark::RegisterBenchmark((row.name + "/" + std::to_string(size)).c_str(), run)->Iterations(1);
    }
}

// A side that HDF5 refuses would be measured as a fast one.
herr_t EndAtAnError(hid_t stack, void* /*data*/)
{
    H5Eprint2(stack, stderr);
    std::abort();
}

} // namespace

void bench::BeginWork()
{
    if (isCountingHeap)
    {
        H5garbage_collect();
        BeginCountingHeap();
    }
    workBegan = Clock::now();
}

bench::Turn bench::EndWork()
{
    Turn turn;
    turn.seconds = SecondsSince(workBegan);
    if (isCountingHeap)
    {
        turn.heapPeak = EndCountingHeap();
    }
    return turn;
}

std::string bench::PathOf(const std::string& name)
{
    const char* folder = std::getenv("TARNWICKHDF_BENCH_DIR");
    return std::string(folder == nullptr ? "." : folder) + "/" + name;
}

const std::vector<std::string>& bench::Names(const std::string& prefix, std::size_t count)
{
    static std::map<std::pair<std::string, std::size_t>, std::vector<std::string>> made;
    std::vector<std::string>& names = made[{prefix, count}];
    char digits[32];
    while (names.size() < count)
    {
        std::snprintf(digits, sizeof(digits), "%06zu", names.size());
        names.push_back(prefix + digits);
    }
    return names;
}

int main(int argc, char** argv)
{
    bench::PythonPeers peers;
    H5Eset_auto2(H5E_DEFAULT, &EndAtAnError, nullptr);
    using namespace bench;
    for (const auto& family :
         {FileRows, SmallArrayRows, DataSetRows, ExtensibleArrayRows, AttributeRows, TypedRows, TypeRows})
    {
        for (const Row& row : family())
        {
            Register(row, peers);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("hdf5", H5_VERS_INFO);
    benchmark::AddCustomContext("compiler", __VERSION__);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
