// The fault engine.
//
// What is varied: the operation (fault_operations.h, a test each), and what fails while it runs: each of its HDF5 calls
// alone, each together with all later calls of the same function, each of its allocations, and allocations while calls
// fail.
// What is held fixed: the file that the operation finds is made once and copied for every run, and so are the handles.
// What is checked after every run: the words of the exception, that nothing that is only read has changed, that a
// handle is open or closed as a whole, that no id stays open, and that the operation works when nothing fails.
//
// faults.txt has a rule a line: the operations (a regular expression), the functions that fail (another; "-" for words
// that may also come up behind another failure, as when a listing goes on), and what follows:
//   words    an exception that begins with them and shows the injected failure in its traceback
//   ?words   the same, but a single failing call may also be made up for, with nothing lost
//   ~words   the same for any number of failing calls
//   =        no exception, and an answer that may differ
// A call without a rule must be made up for, or lead to words that the operation has elsewhere. A rule for the function
// "memory" says that a failing allocation, too, may be made up for.
//
// One case again: `tarnwickhdf_faults --gtest_filter='*table_put*'`; the trace of a failure names the call's number.
// TARNWICKHDF_LONG_TESTS in the environment lets allocations fail behind every failing call, not behind every eighth.
//
// This is a program of its own, because what it defines takes HDF5's place for the shared library.

#include "fault_operations.h"

#include <cstring>
#include <iostream>
#include <new>

#include <dlfcn.h>

namespace
{

// What fails, counted from 0 within a run.
struct Plan
{
    size_t call = SIZE_MAX;
    bool lasting = false; ///< The later calls of the same function fail too.
    size_t allocation = SIZE_MAX;
};

struct Outcome
{
    std::vector<std::string> calls;  ///< The HDF5 functions called, in order.
    std::vector<std::string> failed; ///< Those that failed.
    size_t allocations = 0;
    std::string text;       ///< What the operation threw, "" for nothing.
    std::string answer;     ///< What it gave back, and the caller's buffers.
    std::string contents;   ///< What plain HDF5 finds in the file afterwards.
    std::string nextText;   ///< The same operation once more, without a failure: what it threw,
    std::string nextAnswer; ///< and what it gave back.
};

Plan plan;
Outcome* armed = nullptr; // what the shims write to; null while nothing is to fail

// Arms the shims until its end.
class Arming
{
public:
    explicit Arming(Outcome& outcome) { armed = &outcome; }
    ~Arming() { armed = nullptr; }
    Arming(const Arming&) = delete;
    Arming& operator=(const Arming&) = delete;
};

// Functions that differ in the number of their version stand in for each other.
bool AreVersionsOfOne(const std::string& one, const std::string& other)
{
    return one.compare(0, one.size() - 1, other, 0, other.size() - 1) == 0;
}

bool NoteCall(const std::string& function, Outcome& outcome)
{
    const bool isChosen = outcome.calls.size() == plan.call;
    const bool isLaterOne = plan.lasting && !outcome.failed.empty() && AreVersionsOfOne(outcome.failed[0], function);
    outcome.calls.push_back(function);
    if (isChosen || isLaterOne)
    {
        outcome.failed.push_back(function);
    }
    return isChosen || isLaterOne;
}

// What releases has done so when it fails: nobody could do more, and what is open then was forgotten.
bool ReleasesSomething(const char* function)
{
    return std::strstr(function, "close") != nullptr || std::strstr(function, "free") != nullptr ||
           std::strstr(function, "reclaim") != nullptr;
}

// HDF5's way to say that a function failed: a negative number, or nothing where that can't be said.
template <typename Result>
Result FailureOf()
{
    Result result = {};
    std::memset(&result, std::is_pointer_v<Result> || std::is_unsigned_v<Result> ? 0 : -1, sizeof(result));
    return result;
}

template <const char* Name, typename Result, typename... Arguments>
__attribute__((used)) Result Call(Arguments... arguments)
{
    static const auto real = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, Name));
    Outcome* const outcome = std::exchange(armed, nullptr);
    const bool fails = outcome != nullptr && NoteCall(Name, *outcome);
    if (fails && ReleasesSomething(Name))
    {
        real(arguments...);
    }
    if (fails)
    {
        H5Epush2(H5E_DEFAULT, "", Name, 0, H5E_ERR_CLS, H5E_RESOURCE, H5E_CANTINIT, "injected");
    }
    // Armed inside HDF5 too: it calls none of these functions itself, but the library's callbacks do.
    armed = outcome;
    return fails ? FailureOf<Result>() : real(arguments...);
}

// Defines HDF5's function of that name, with the parameters of its declaration.
#define SHIM(function)                                                                                                 \
    constexpr char name_##function[] = #function;                                                                      \
    __attribute__((used, noinline)) void Define_##function()                                                           \
    {                                                                                                                  \
        asm volatile(".globl " #function "\n.type " #function ", @function\n.set " #function                           \
                     ", %c0" ::"i"(static_cast<decltype(function)*>(&Call<name_##function>)));                         \
    }
#include "hdf5_calls.inc" // a line for each function that the library imports

} // namespace

// Memory comes from where it would without this, so that the usual operator delete can have it back.
void* operator new(size_t size)
{
    static const auto real = reinterpret_cast<void* (*)(size_t)>(dlsym(RTLD_NEXT, "_Znwm"));
    if (armed != nullptr && armed->allocations++ == plan.allocation)
    {
        throw std::bad_alloc();
    }
    return real(size);
}

namespace tarnwick::hdf::tests
{

// Which objects there are, how the data sets lie in the file, and their values.
std::string ContentsOf(hid_t file)
{
    const ScopedType text = TypeOf(kFixedText);
    const ScopedType numberOfARow = TypeOf(RowTypeWith(""));
    const std::pair<const char*, hid_t> dataSets[] = {{"g/a", H5T_NATIVE_INT},         {"g/s", text.get()},
                                                      {"g/e", H5T_NATIVE_INT},         {"g/t", numberOfARow.get()},
                                                      {"g/large", numberOfARow.get()}, {"g/new", H5T_NATIVE_INT}};
    std::string contents = Json({H5Lexists(file, "g/sub", 0), H5Lexists(file, "g/new", 0)}).dump();
    for (const auto& [name, type] : dataSets)
    {
        contents += ContentOf(ScopedDataSet(H5Dopen1(file, name)).get(), type);
    }
    return contents;
}

std::string ContentsAfter(const Case& c)
{
    if (!c.file->IsClosed())
    {
        return ContentsOf(c.file->FileID());
    }
    return ContentsOf(ScopedFile(H5Fopen(kPath.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)).get());
}

// A handle that failed half-way would have one of its two ids.
void ExpectWholeHandles(const Case& c)
{
    if (c.file->IsClosed())
    {
        return;
    }
    EXPECT_EQ(c.a->LocationID() > 0, c.a->GetTypeID() > 0);
    EXPECT_EQ(c.t->LocationID() > 0, c.t->GetCompoundTypeID() > 0);
}

// Runs an operation on a fresh copy of the file with the plan's failures, then once more without any.
Outcome RunWith(const Operation& operation, const Plan& faults)
{
    std::filesystem::remove_all("run");
    std::filesystem::copy("files", "run");
    const IdCounts before = CountIds();
    Outcome outcome;
    {
        Case c;
        c.answer.exceptions(std::ios::badbit);
        plan = faults;
        const auto run = [&]
        {
            const Arming arming(outcome);
            operation.run(c);
        };

        outcome.text = TextOf(run);
        outcome.answer = c.Answer();
        outcome.contents = ContentsAfter(c);
        EXPECT_TRUE(outcome.text.empty() || c.strings.at(0) == "untouched");
        ExpectWholeHandles(c);

        c.answer = {};
        outcome.nextText = TextOf([&] { operation.run(c); });
        outcome.nextAnswer = c.Answer();
        c.DropNodes();
        EXPECT_TRUE(c.file->IsClosed() || c.file->GetOpenObjectsCount() == 2) << "more than the file and its root";
    }
    EXPECT_EQ(before, CountIds());
    return outcome;
}

struct Rule
{
    std::regex functions;
    std::regex words;
    std::string effect; ///< As it stands in faults.txt.
};

std::vector<Rule> RulesOf(const std::string& operation)
{
    std::vector<Rule> rules;
    std::ifstream table(TARNWICKHDF_FAULTS);
    for (std::string operations, functions, effect; table >> operations >> functions;)
    {
        std::getline(table >> std::ws, effect);
        if (std::regex_match(operation, std::regex(operations)))
        {
            const std::string words = effect.substr(effect.find_first_not_of("?~"));
            rules.push_back({std::regex(functions), std::regex("^" + words + "(\n|$)"), effect});
        }
    }
    return rules;
}

struct Totals
{
    size_t calls = 0;
    size_t injected = 0;
    size_t thrown = 0;
    size_t silent = 0;
    size_t starved = 0;
};

struct Faults : HdfTest, ::testing::WithParamInterface<Operation>
{
    Faults() : rules(RulesOf(GetParam().name))
    {
        std::filesystem::current_path(Path(""));
        std::filesystem::create_directory("files");
        MakeFile("files/file.h5");
        std::filesystem::copy_file("files/file.h5", "files/new.h5");
        std::cout.setstate(std::ios::failbit); // one operation prints
        {
            const ScopedFile file(H5Fopen("files/file.h5", H5F_ACC_RDONLY, H5P_DEFAULT));
            untouched = ContentsOf(file.get());
        }
        EXPECT_EQ(untouched.rfind("[1,0][4] chunk [4]: [7,8,9,10]", 0), 0U) << untouched;

        usual = RunWith(GetParam(), {});
        EXPECT_EQ(usual.text, "");
    }

    static void TearDownTestSuite()
    {
        std::cerr << std::size(kOperations) << " operations, " << totals.calls << " calls, " << totals.injected
                  << " injected failures, " << totals.thrown << " exceptions checked, " << totals.silent
                  << " silent by rule, " << totals.starved << " failed allocations\n";
    }

    bool IsKnown(const std::string& text) const
    {
        return std::any_of(rules.begin(), rules.end(), [&](auto& rule) { return std::regex_search(text, rule.words); });
    }

    const Rule* RuleFor(const std::string& function) const
    {
        const auto rule =
            std::find_if(rules.begin(), rules.end(), [&](auto& r) { return std::regex_match(function, r.functions); });
        return rule == rules.end() ? nullptr : &*rule;
    }

    // Runs with failures; whatever they led to, nothing that is only read has changed, and the operation works again.
    Outcome Try(const Plan& faults) const
    {
        const Outcome outcome = RunWith(GetParam(), faults);
        const bool readsOnly = usual.contents == untouched;
        const bool worksAgain =
            outcome.nextText.empty() && (outcome.nextAnswer == usual.nextAnswer || outcome.nextAnswer == usual.answer);
        EXPECT_TRUE(worksAgain || (!readsOnly && IsKnown(outcome.nextText))) << TraceOf(faults, outcome);
        EXPECT_TRUE(!readsOnly || outcome.contents == usual.contents) << TraceOf(faults, outcome);
        return outcome;
    }

    static std::string TraceOf(const Plan& faults, const Outcome& outcome)
    {
        return "call " + std::to_string(faults.call) + (faults.lasting ? " and later ones" : "") + ", allocation " +
               std::to_string(faults.allocation) + ", failed: " + Json(outcome.failed).dump() +
               ", threw: " + outcome.text + ", the next time: " + outcome.nextText;
    }

    void ExpectAnExceptionByRule(const Plan& faults, const Outcome& outcome) const
    {
        const Rule* const rule = RuleFor(outcome.failed.at(0));
        const bool hasWords = rule != nullptr && rule->effect != "=";
        const bool isTold = hasWords ? std::regex_search(outcome.text, rule->words) : IsKnown(outcome.text);
        EXPECT_TRUE(isTold) << TraceOf(faults, outcome);

        const bool hasTraceback = outcome.text.find(":\n") != std::string::npos;
        const bool showsTheFailure = outcome.text.find("injected") != std::string::npos;
        EXPECT_TRUE(!hasWords || !hasTraceback || showsTheFailure) << TraceOf(faults, outcome);
    }

    void ExpectSilenceByRule(const Plan& faults, const Outcome& outcome) const
    {
        const Rule* const rule = RuleFor(outcome.failed.at(0));
        const std::string effect = rule == nullptr ? "~" : rule->effect;
        const bool mayBeMadeUpFor = effect[0] == '~' || (effect[0] == '?' && !faults.lasting);
        const bool isMadeUpFor = outcome.answer == usual.answer && outcome.contents == usual.contents;
        EXPECT_TRUE(effect == "=" || (mayBeMadeUpFor && isMadeUpFor)) << TraceOf(faults, outcome);
    }

    void TryCall(const Plan& faults) const
    {
        const Outcome outcome = Try(faults);
        totals.injected += outcome.failed.size();
        if (outcome.text.empty())
        {
            ++totals.silent;
            ExpectSilenceByRule(faults, outcome);
        }
        else
        {
            ++totals.thrown;
            ExpectAnExceptionByRule(faults, outcome);
        }
    }

    // Lets one allocation after the other fail, until the operation needs no more; what else fails stays the same.
    void TryAllocations(Plan faults) const
    {
        // A destructor keeps the failure to itself, and a failing call may be told instead.
        const bool mayKeepIt =
            faults.call != SIZE_MAX || std::string(GetParam().name).find("file.open") != std::string::npos;
        for (faults.allocation = 0;; ++faults.allocation)
        {
            const Outcome outcome = Try(faults);
            if (outcome.allocations <= faults.allocation)
            {
                return;
            }
            ++totals.starved;
            const bool isMadeUpFor = RuleFor("memory") != nullptr && outcome.text.empty() &&
                                     outcome.answer == usual.answer && outcome.contents == usual.contents;
            EXPECT_TRUE(outcome.text == "std::bad_alloc" || mayKeepIt || isMadeUpFor) << TraceOf(faults, outcome);
        }
    }

    std::string untouched;
    std::vector<Rule> rules;
    Outcome usual;
    static inline Totals totals;
};

TEST_P(Faults, FailingCallsAreReportedInTheirWordsOrMadeUpFor)
{
    totals.calls += usual.calls.size();
    for (size_t call = 0; call < usual.calls.size(); ++call)
    {
        TryCall({call, false, SIZE_MAX});
        TryCall({call, true, SIZE_MAX});
    }
}

TEST_P(Faults, FailingAllocationsAreReportedAndLeaveNothingOpen)
{
    if (GetParam().name == std::string("file.log"))
    {
        GTEST_SKIP()
            << "the destructors of the JSON library allocate, so that running out of memory ends the process there";
    }
    TryAllocations({});
    const size_t step = std::getenv("TARNWICKHDF_LONG_TESTS") != nullptr ? 1 : 8;
    for (size_t call = 0; call < usual.calls.size(); call += step)
    {
        TryAllocations({call, true, 0});
    }
}

// A process translates types for the first time once. gtest runs tests of this ending first, so that the parts that it
// forks for haven't done so yet.
TEST(FirstTranslationDeathTest, OfTypesThatFailsIsMadeAgain)
{
    constexpr size_t moreThanItsCalls = 100;
    const ScopedType copy(H5Tcopy(H5T_NATIVE_SCHAR));
    for (size_t call = 0; call < moreThanItsCalls && !HasFailure(); ++call)
    {
        SCOPED_TRACE(call);
        InAProcessOfItsOwn(
            [&]
            {
                Outcome outcome;
                plan = {call, true, SIZE_MAX};
                const auto translate = [&]
                {
                    const Arming arming(outcome);
                    INode::DataTypeToHDFType(TDataType::Int);
                };
                TextOf(translate);

                hid_t type = copy.get();
                EXPECT_EQ(INode::HDFTypeToDataType(type), TDataType::Char);
            });
    }
}

// Asking for groups looks at each of the nine children, asking for a data set stops at the first.
TEST_F(HdfTest, QuestionsAboutChildrenLookAtNoMoreChildrenThanTheyNeed)
{
    std::filesystem::current_path(Path(""));
    std::filesystem::create_directory("files");
    MakeFile("files/file.h5");
    const auto* const operation = std::find_if(std::begin(kOperations), std::end(kOperations),
                                               [](auto& o) { return std::string(o.name) == "group.child"; });

    const Outcome outcome = RunWith(*operation, {});

    EXPECT_EQ(std::count(outcome.calls.begin(), outcome.calls.end(), "H5Oget_info_by_name2"), 10);
}

std::string NameOf(const ::testing::TestParamInfo<Operation>& info)
{
    std::string name = std::regex_replace(info.param.name, std::regex("[.]"), "_");
    return std::regex_replace(name, std::regex("[+]"), "_and_write");
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults, ::testing::ValuesIn(kOperations), NameOf);

} // namespace tarnwick::hdf::tests
