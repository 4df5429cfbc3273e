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
constexpr double kShortestTurn = 0.02;
constexpr double kSecondsOfPairs = 1.3;
constexpr double kSecondsOfAPeer = 0.4;
constexpr double kLongPair = 0.6;
constexpr std::size_t kFewestPairs = 5;
constexpr std::size_t kFewestLongPairs = 3;
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

double Quantile(std::vector<double> values, std::size_t quarters)
{
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) * quarters / 4];
}

double Median(const std::vector<double>& values)
{
    return Quantile(values, 2);
}

std::vector<double> Ratios(const std::vector<double>& of, const std::vector<double>& to)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(of.size(), to.size()); ++i)
    {
        ratios.push_back(of[i] / to[i]);
    }
    return ratios;
}

int RoundsFor(double seconds)
{
    const double turn = IsQuick() ? kShortestTurn / 10 : kShortestTurn;
    return static_cast<int>(std::clamp(turn / std::max(seconds, 1e-9), 1.0, kMostRounds));
}

// One side in one row, and how long its turns took.
struct Contestant
{
    std::string key;
    Side side;
    Turn first;
    std::vector<double> seconds;
    double spent = 0;
};

// The first turn warms up, and tells what the side takes of the heap.
void TakeFirstTurn(Contestant& contestant, std::size_t size)
{
    isCountingHeap = true;
    contestant.first = contestant.side(size);
    isCountingHeap = false;
}

void TakeTurn(Contestant& contestant, std::size_t size)
{
    const auto begin = Clock::now();
    const int rounds = RoundsFor(contestant.first.seconds);
    double seconds = 0;
    for (int round = 0; round < rounds; ++round)
    {
        seconds += contestant.side(size).seconds;
    }
    contestant.seconds.push_back(seconds / rounds);
    contestant.spent += SecondsSince(begin);
}

// What disturbs the machine disturbs both: they change after each round, and take turns in coming first.
void TakeTurns(Contestant& library, Contestant& plain, std::size_t size)
{
    const auto begin = Clock::now();
    const auto [faster, slower] = std::minmax({library.first.seconds, plain.first.seconds});
    const int rounds = std::min(RoundsFor(faster), std::max(RoundsFor(slower / 10), 1));
    double librarySeconds = 0;
    double plainSeconds = 0;
    for (int round = 0; round < rounds; ++round)
    {
        if ((library.seconds.size() + static_cast<std::size_t>(round)) % 2 == 0)
        {
            librarySeconds += library.side(size).seconds;
            plainSeconds += plain.side(size).seconds;
        }
        else
        {
            plainSeconds += plain.side(size).seconds;
            librarySeconds += library.side(size).seconds;
        }
    }
    library.seconds.push_back(librarySeconds / rounds);
    plain.seconds.push_back(plainSeconds / rounds);
    library.spent += SecondsSince(begin);
}

void TellOf(const Contestant& contestant, benchmark::State& state)
{
    state.counters[contestant.key + "_s"] = Median(contestant.seconds);
    state.counters[contestant.key + "_heap"] = static_cast<double>(contestant.first.heapPeak);
    state.counters[contestant.key + "_file"] = static_cast<double>(contestant.first.fileBytes);
}

void TellOfPairs(const Contestant& library, const Contestant& plain, benchmark::State& state)
{
    const std::vector<double> ratios = Ratios(library.seconds, plain.seconds);
    state.counters["ratio"] = Median(ratios);
    state.counters["ratio_q1"] = Quantile(ratios, 1);
    state.counters["ratio_q3"] = Quantile(ratios, 3);
    state.counters["pairs"] = static_cast<double>(ratios.size());
}

// All sides of one row; it remembers between the sizes how long each took.
class Contest
{
public:
    Contest(Row row, bench::PythonPeers& peers) : m_row(std::move(row))
    {
        Join("cpp", m_row.cpp);
        Join("h5py", peers.For("h5py", m_row.name));
        Join("pytables", peers.For("PyTables", m_row.name));
    }

    void Run(benchmark::State& state, std::size_t size)
    {
        state.SetLabel(m_row.unit);
        Contestant library = {"library", m_row.library, {}, {}, 0};
        Contestant plain = {"plain", m_row.plain, {}, {}, 0};
        if (IsTooLong(plain, size) || IsTooLong(library, size))
        {
            state.SkipWithError("left out: a turn would take too long");
            return;
        }
        std::vector<Contestant> others = Others(size);
        RunAll(library, plain, others, size);
        if (library.side)
        {
            TellOf(library, state);
            TellOfPairs(library, plain, state);
        }
        TellOf(plain, state);
        for (const Contestant& other : others)
        {
            TellOf(other, state);
            state.counters[other.key + "_times"] = Median(Ratios(other.seconds, library.seconds));
        }
        state.counters["target"] = size >= m_row.targetFrom ? m_row.target : 0;
        state.SetIterationTime(Median(plain.seconds));
    }

private:
    void Join(const std::string& key, const Side& side)
    {
        if (side)
        {
            m_others.push_back({key, side, {}, {}, 0});
        }
    }

    // Remembered are the size and the seconds of the last first turn.
    bool IsTooLong(const Contestant& contestant, std::size_t size) const
    {
        const auto last = m_last.find(contestant.key);
        if (IsSet("TARNWICKHDF_BENCH_LONG") || last == m_last.end())
        {
            return false;
        }
        const double growth = static_cast<double>(size) / static_cast<double>(last->second.first);
        return growth > 1 && last->second.second * growth > kLongestTurn;
    }

    std::vector<Contestant> Others(std::size_t size) const
    {
        std::vector<Contestant> others;
        std::copy_if(m_others.begin(), m_others.end(), std::back_inserter(others),
                     [&](const Contestant& other) { return !IsTooLong(other, size); });
        return others;
    }

    void Begin(Contestant& contestant, std::size_t size)
    {
        TakeFirstTurn(contestant, size);
        m_last[contestant.key] = {size, contestant.first.seconds};
    }

    void RunAll(Contestant& library, Contestant& plain, std::vector<Contestant>& others, std::size_t size)
    {
        Begin(plain, size);
        if (library.side)
        {
            Begin(library, size);
        }
        for (Contestant& other : others)
        {
            Begin(other, size);
        }
        const double budget = IsQuick() ? 0.0 : kSecondsOfPairs;
        const bool isLong = IsQuick() || plain.first.seconds + library.first.seconds > kLongPair;
        const std::size_t fewest = isLong ? kFewestLongPairs : kFewestPairs;
        std::size_t pairs = 0;
        while (pairs < fewest || (pairs < kMostPairs && plain.spent + library.spent < budget))
        {
            if (library.side)
            {
                TakeTurns(library, plain, size);
            }
            else
            {
                TakeTurn(plain, size);
            }
            TakeTurnsOf(others, size);
            ++pairs;
        }
    }

    static void TakeTurnsOf(std::vector<Contestant>& others, std::size_t size)
    {
        for (Contestant& other : others)
        {
            if (other.seconds.empty() || (!IsQuick() && other.spent < kSecondsOfAPeer))
            {
                TakeTurn(other, size);
            }
        }
    }

    Row m_row;
    std::vector<Contestant> m_others;
    std::map<std::string, std::pair<std::size_t, double>> m_last;
};

void Register(const Row& row, bench::PythonPeers& peers)
{
    const auto contest = std::make_shared<Contest>(row, peers);
    std::vector<std::size_t> sizes = row.sizes;
    if (IsQuick() && sizes.size() > 1)
    {
        sizes.pop_back();
    }
    for (const std::size_t size : sizes)
    {
        const auto run = [=](benchmark::State& state)
        {
            for (auto _ : state)
            {
                contest->Run(state, size);
            }
        };
        benchmark::RegisterBenchmark((row.name + "/" + std::to_string(size)).c_str(), run)
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
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
    for (const Rows& rows :
         {FileRows(), SmallArrayRows(), ArrayRows(), TableRows(), ExtensibleArrayRows(), AttributeRows(), TypeRows()})
    {
        for (const Row& row : rows)
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
