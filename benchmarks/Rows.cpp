// Measures the rows: what is needed for a fair turn, and what Google Benchmark is told of it.
#include "Rows.h"

#include <benchmark/benchmark.h>

#include <hdf5.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

using namespace bench;

namespace
{

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

const bool kIsQuick = std::getenv("TARNWICKHDF_BENCH_QUICK") != nullptr;
const bool kIsLong = std::getenv("TARNWICKHDF_BENCH_LONG") != nullptr;
bool isCountingHeap = false;

double SecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Asks peers.py, so that h5py and PyTables take turns with the other sides. Questions go to its input, answers come through
// a named pipe: the seconds of a turn. A size of 0 asks whether a peer knows a row: the answer is negative if it doesn't.
double AskPeer(Name peer, Name row, std::size_t size)
{
    struct Pipes
    {
        std::string path = PathOf("answers");
        int made = mkfifo(path.c_str(), S_IRUSR | S_IWUSR);
        FILE* questions = popen((PEERS_COMMAND " > '" + path + "'").c_str(), "w");
        FILE* answers = std::fopen(path.c_str(), "r");
    };
    static const Pipes pipes;
    double seconds = -1;
    std::fprintf(pipes.questions, "%s|%s|%zu\n", peer.c_str(), row.c_str(), size);
    std::fflush(pipes.questions);
    if (std::fscanf(pipes.answers, "%lf", &seconds) != 1)
    {
        std::fprintf(stderr, "the Python peers ended in: %s\n", row.c_str());
        std::abort();
    }
    return seconds;
}

// An empty side if the peer doesn't know the row.
Side PeerFor(Name peer, Name row)
{
    const bool isKnown = AskPeer(peer, row, 0) >= 0;
    return isKnown ? [=](std::size_t size) { return Turn{AskPeer(peer, row, size)}; } : Side();
}

int RoundsFor(double secondsOfARound)
{
    const double wanted = kIsQuick ? 0 : kSecondsOfATurn;
    return static_cast<int>(std::clamp(wanted / std::max(secondsOfARound, 1e-9), 1.0, kMostRounds));
}

// One side of a row at one size: its first turn, which warms up and tells of the heap, and how long its other turns took.
struct Contestant
{
    std::string key;
    Side side;
    Turn first = {};
    double fastest = 0; ///< Round, on the average of a turn.
    std::vector<double> seconds = {};
    double spent = 0;

    bool IsMain() const { return key == "library" || key == "plain"; }

    void WarmUp(std::size_t size)
    {
        isCountingHeap = true;
        first = side(size);
        isCountingHeap = false;
        fastest = first.seconds;
    }

    void TakeTurn(std::size_t size, int rounds)
    {
        const auto begin = Clock::now();
        double sum = 0;
        for (int round = 0; round < rounds; ++round)
        {
            sum += side(size).seconds;
        }
        seconds.push_back(sum / rounds);
        fastest = std::min(fastest, seconds.back());
        spent += SecondsSince(begin);
    }
};

// All sides of one row; it remembers how long each took at the size before.
class Contest
{
public:
    explicit Contest(const Row& row) : m_row(row)
    {
        m_sides = {{"library", row.library}, {"plain", row.plain}, {"cpp", row.cpp}};
        // Users' own ways stand in the row of the best one.
        if (row.name.find(", beside ") == std::string::npos)
        {
            m_sides["h5py"] = PeerFor("h5py", row.name);
            m_sides["pytables"] = PeerFor("PyTables", row.name);
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
        for (const char* key : {"library", "plain", "cpp", "h5py", "pytables"})
        {
            if (m_sides[key] && !IsTooLong(key, size))
            {
                all.push_back({key, m_sides[key]});
            }
        }
        Measure(all, size);
        Tell(all, state, size);
    }

private:
    bool IsTooLong(Name key, std::size_t size) const
    {
        const auto last = m_last.find(key);
        if (kIsLong || last == m_last.end())
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
            contestant.WarmUp(size);
            m_last[contestant.key] = {size, contestant.first.seconds};
        }
        const std::size_t fewestPairs = kIsQuick ? 1 : kFewestPairs;
        const std::size_t mostPairs = kIsQuick ? 1 : kMostPairs;
        double spent = 0;
        for (std::size_t pair = 0; pair < fewestPairs || (pair < mostPairs && spent < kSecondsOfPairs); ++pair)
        {
            spent = 0;
            const int roundsOfMain = RoundsOfMain(all);
            for (Contestant& contestant : all)
            {
                const bool isMain = contestant.IsMain();
                if (isMain || contestant.spent < kSecondsOfAPeer)
                {
                    contestant.TakeTurn(size, isMain ? roundsOfMain : RoundsFor(contestant.fastest));
                }
                spent += isMain ? contestant.spent : 0;
            }
            std::reverse(all.begin(), all.end());
        }
    }

    // Each turn is told, report.py does the statistics. The unit and the reasons that hold for the size go where Google
    // Benchmark has room for words.
    void Tell(const std::vector<Contestant>& all, benchmark::State& state, std::size_t size)
    {
        std::string words = m_row.unit;
        for (const Reason& reason : m_row.reasons)
        {
            words += size <= reason.largest ? "|" + reason.winner + ": " + reason.text : "";
        }
        state.SetLabel(words);
        state.counters["target"] = size >= m_row.targetFrom ? m_row.target : 0;
        for (const Contestant& contestant : all)
        {
            state.counters[contestant.key + "_heap"] = static_cast<double>(contestant.first.heapPeak);
            state.counters[contestant.key + "_file"] = static_cast<double>(contestant.first.fileBytes);
            for (std::size_t turn = 0; turn < contestant.seconds.size(); ++turn)
            {
                state.counters[contestant.key + "_s" + std::to_string(turn)] = contestant.seconds[turn];
            }
        }
    }

    Row m_row;
    std::map<std::string, Side> m_sides;
    std::map<std::string, std::pair<std::size_t, double>> m_last;
};

void Register(const Row& row)
{
    const auto contest = std::make_shared<Contest>(row);
    const std::size_t sizes = kIsQuick ? 1 : row.sizes.size();
    for (std::size_t i = 0; i < sizes; ++i)
    {
        const std::size_t size = row.sizes[i];
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

Turn bench::Measured(const std::function<void()>& work)
{
    if (isCountingHeap)
    {
        H5garbage_collect();
        BeginCountingHeap();
    }
    Turn turn;
    const auto begin = Clock::now();
    work();
    turn.seconds = SecondsSince(begin);
    turn.heapPeak = isCountingHeap ? EndCountingHeap() : 0;
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
    H5Eset_auto2(H5E_DEFAULT, &EndAtAnError, nullptr);
    for (const auto& family :
         {FileRows, SmallArrayRows, DataSetRows, ExtensibleArrayRows, AttributeRows, TypedRows, TypeRows})
    {
        ForEach(family(), Register);
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
