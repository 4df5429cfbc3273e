#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

/// One side of a comparison: prepares what it needs, does the work once and gives the seconds that the work took.
using Side = std::function<double()>;

/// Registers a comparison under "work/size". The two sides take turns, so that what disturbs the machine disturbs
/// both; a pair is one turn of each, or several where one is too short to be measured. The report holds the median of
/// the pairs' ratios (library to plain) and of both times.
/// `target` is the highest ratio that the project allows itself, 0 for none.
void Compare(const std::string& work, std::size_t size, double target, Side library, Side plain);

/// Registers work that is measured alone, to tell what a share of another work costs.
void Measure(const std::string& work, std::size_t size, Side side);

/// Each program defines it: registers the program's work.
void RegisterWork();

/// A short run: fewer pairs, and the sizes that `Sizes` leaves.
bool IsQuick();

/// The sizes of a full run; a quick one leaves out the largest.
std::vector<std::size_t> Sizes(std::vector<std::size_t> sizes);

/// A file in the folder for the benchmarks' files, which TARNWICKHDF_BENCH_DIR names.
std::string PathOf(const std::string& name);

/// "prefix000000", "prefix000001" and so on, in the order of HDF5's name index.
std::vector<std::string> Names(const std::string& prefix, std::size_t count);

/// Texts for both sides: C functions take the pointers.
struct Texts
{
    explicit Texts(std::vector<std::string> texts);
    Texts(const Texts&) = delete;
    Texts& operator=(const Texts&) = delete;
    ~Texts() = default;

    const std::vector<std::string> strings;
    std::vector<const char*> pointers;
};

template <typename Work>
double SecondsOf(Work work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace bench
