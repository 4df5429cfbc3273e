// The fault engine.
//
// What is varied: the operation (fault_operations.json, two tests each), and what fails while it runs: each of its HDF5
// calls alone, each together with all later calls of the same function, each of its allocations, and allocations while
// calls fail.
// What is held fixed: the file that the operation finds, made once and copied for every run, and the open handles.
// What is checked after every run: the words of the exception, by the rules of faults.txt, which begins with what they
// mean; that nothing that is only read has changed, that a handle is open or closed as a whole, that no id stays open,
// and that the operation works when nothing fails.
//
// One case again: `tarnwickhdf_faults --gtest_filter='*table_put*'`; the trace of a failure names the call's number.
// TARNWICKHDF_LONG_TESTS in the environment lets allocations fail behind every failing call, not behind every eighth.
//
// This is a program of its own, because what it defines takes HDF5's place for the shared library.

#include "Fixture.h"
#include "Player.h"
#include "Tell.h"

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

const json& FaultOperations()
{
    static std::ifstream stream(TARNWICKHDF_TESTS "/fault_operations.json");
    static const json document = json::parse(stream, nullptr, true, true);
    return document;
}

std::vector<std::string> NamesOfOperations()
{
    std::vector<std::string> names;
    for (const auto& operation : FaultOperations()["operations"].items())
    {
        names.push_back(operation.key());
    }
    return names;
}

// Steps with all their fields.
std::vector<json> Complete(std::vector<json> given)
{
    for (json& step : given)
    {
        json complete = FaultOperations()["usual"];
        complete.update(step);
        step = complete;
        if (step["times"] > 1)
        {
            step["sources"] = step["targets"] = std::vector<hsize_t>(step["times"], step["sources"][0]);
        }
    }
    return given;
}

// A player on one of the files, with a buffer that holds the largest array.
struct FaultPlayer : Player
{
    explicit FaultPlayer(const std::string& name, const std::string& mode)
        : Player(name, mode, "H5T_COMPOUND { H5T_NATIVE_INT \"number\"; " + Text("4") + " \"text\"; }", 2000)
    {
    }

    static std::string Text(const std::string& size)
    {
        return "H5T_STRING { STRSIZE " + size + "; STRPAD H5T_STR_NULLTERM; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; }";
    }

    void PrepareAll(const std::vector<json>& steps)
    {
        for (const json& step : steps)
        {
            Prepare(step);
            if (step["name"] != "")
            {
                Open(step);
            }
        }
    }

    void ActAll(const std::vector<json>& steps)
    {
        for (const json& step : steps)
        {
            Act(step);
        }
    }

    std::string Answers() const { return answers.str() + tell::Values(values).dump() + Json(texts).dump(); }
};

void MakeFile(const std::string& name)
{
    FaultPlayer player(name, "w");
    for (const json& step : Complete(FaultOperations()["file"]))
    {
        player.PrepareAll({step});
        player.Act(step);
    }
    const char* texts[] = {"first", "so long that std::string allocates memory for it"};
    const int number = 7;
    const ScopedType text = TypeOf(FaultPlayer::Text("H5T_VARIABLE"));
    const ScopedType row = TypeOf("H5T_COMPOUND {" + FaultPlayer::Text("H5T_VARIABLE") + "\"text\"; }");
    const ScopedSpace scalar(H5Screate(H5S_SCALAR));
    const ScopedAttribute attribute(H5Acreate1(player.group->LocationID(), "vlen", text.get(), scalar.get(), 0));
    H5Awrite(attribute.get(), text.get(), texts);
    H5LTset_attribute_int(player.group->LocationID(), ".", "number", &number, 1);
    player.at->CreateTableFromBuffer("w", texts, 2, row.get(), 0, -1, 0);
}

// What plain HDF5 finds: which objects there are, how the data sets lie in the file, and their values.
std::string ContentsOf(hid_t file)
{
    const ScopedType text = TypeOf(FaultPlayer::Text("4"));
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; }");
    const std::pair<const char*, hid_t> dataSets[] = {{"a", H5T_NATIVE_INT}, {"s", text.get()},
                                                      {"e", H5T_NATIVE_INT}, {"t", row.get()},
                                                      {"large", row.get()},  {"new", H5T_NATIVE_INT}};
    std::string contents = Json({H5Lexists(file, "sub", 0), H5Lexists(file, "new", 0)}).dump();
    for (const auto& [name, type] : dataSets)
    {
        contents += ContentOf(ScopedDataSet(H5Dopen1(file, name)).get(), type);
    }
    return contents;
}

std::string ContentsOf(const std::string& path)
{
    return ContentsOf(ScopedFile(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)).get());
}

// A handle that failed half-way would have one of its two ids. A new table can be without its type, and says so.
void ExpectWholeHandles(const Player& player, const std::string& operation)
{
    if (!player.file->IsClosed() && operation.find("create") == std::string::npos)
    {
        EXPECT_EQ(player.array->LocationID() > 0, player.array->GetTypeID() > 0);
        EXPECT_EQ(player.table->LocationID() > 0, player.table->GetCompoundTypeID() > 0);
    }
}

// Runs an operation on a fresh copy of the file with the plan's failures, then once more without any.
Outcome RunWith(const std::string& operation, const Plan& faults)
{
    std::filesystem::remove_all("run");
    std::filesystem::copy("files", "run");
    const IdCounts before = CountIds();
    Outcome outcome;
    {
        const std::vector<json> steps = Complete(FaultOperations()["operations"][operation]);
        FaultPlayer player("run/file.h5", "r+");
        player.answers.exceptions(std::ios::badbit);
        player.PrepareAll(Complete(FaultOperations()["handles"]));
        player.PrepareAll(steps);
        plan = faults;
        const auto actArmed = [&]
        {
            const Arming arming(outcome);
            player.ActAll(steps);
        };

        outcome.text = TextOf(actArmed);
        outcome.answer = player.Answers();
        outcome.contents = player.file->IsClosed() ? ContentsOf(player.path) : ContentsOf(player.file->FileID());
        EXPECT_TRUE(outcome.text.empty() || player.texts.at(0) == "untouched");
        ExpectWholeHandles(player, operation);

        player.answers = {};
        outcome.nextText = TextOf([&] { player.ActAll(steps); });
        outcome.nextAnswer = player.Answers();
        player.DropNodes();
        player.array.reset();
        EXPECT_TRUE(player.file->IsClosed() || player.file->GetOpenObjectsCount() == 2) << "more than file and root";
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
    std::ifstream table(TARNWICKHDF_TESTS "/faults.txt");
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

// A test with the files that each run copies.
struct FilesTest : HdfTest
{
    FilesTest()
    {
        std::filesystem::current_path(Path(""));
        std::filesystem::create_directory("files");
        MakeFile("files/file.h5");
        std::filesystem::copy_file("files/file.h5", "files/new.h5");
    }
};

struct Faults : FilesTest, ::testing::WithParamInterface<std::string>
{
    Faults() : rules(RulesOf(GetParam()))
    {
        std::cout.setstate(std::ios::failbit); // one operation prints
        untouched = ContentsOf("files/file.h5");
        EXPECT_EQ(untouched.rfind("[1,0][4] chunk [4]: [10,11,12,13]", 0), 0U) << untouched;

        usual = RunWith(GetParam(), {});
        EXPECT_EQ(usual.text, "");
    }

    static void TearDownTestSuite()
    {
        std::cerr << NamesOfOperations().size() << " operations";
        for (const auto& [what, total] : totals)
        {
            std::cerr << ", " << total << ' ' << what;
        }
        std::cerr << "\n";
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
        totals["injected failures"] += outcome.failed.size();
        if (outcome.text.empty())
        {
            ++totals["silent by rule"];
            ExpectSilenceByRule(faults, outcome);
        }
        else
        {
            ++totals["exceptions checked"];
            ExpectAnExceptionByRule(faults, outcome);
        }
    }

    // Lets one allocation after the other fail, until the operation needs no more; what else fails stays the same.
    void TryAllocations(Plan faults) const
    {
        // A destructor keeps the failure to itself, and a failing call may be told instead.
        const bool mayKeepIt = faults.call != SIZE_MAX || GetParam().find("file_open") != std::string::npos;
        for (faults.allocation = 0;; ++faults.allocation)
        {
            const Outcome outcome = Try(faults);
            if (outcome.allocations <= faults.allocation)
            {
                return;
            }
            ++totals["failed allocations"];
            const bool isMadeUpFor = RuleFor("memory") != nullptr && outcome.text.empty() &&
                                     outcome.answer == usual.answer && outcome.contents == usual.contents;
            EXPECT_TRUE(outcome.text == "std::bad_alloc" || mayKeepIt || isMadeUpFor) << TraceOf(faults, outcome);
        }
    }

    std::string untouched;
    std::vector<Rule> rules;
    Outcome usual;
    static inline std::map<std::string, size_t> totals;
};

TEST_P(Faults, FailingCallsAreReportedInTheirWordsOrMadeUpFor)
{
    totals["calls"] += usual.calls.size();
    for (size_t call = 0; call < usual.calls.size(); ++call)
    {
        TryCall({call, false, SIZE_MAX});
        TryCall({call, true, SIZE_MAX});
    }
}

TEST_P(Faults, FailingAllocationsAreReportedAndLeaveNothingOpen)
{
    if (GetParam() == "file_log")
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

// Asking for groups looks at each of the ten children, asking for a data set stops at the first.
TEST_F(FilesTest, QuestionsAboutChildrenLookAtNoMoreChildrenThanTheyNeed)
{
    const Outcome outcome = RunWith("group_child", {});

    EXPECT_EQ(std::count(outcome.calls.begin(), outcome.calls.end(), "H5Oget_info_by_name2"), 11);
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults, ::testing::ValuesIn(NamesOfOperations()),
                         [](auto& operation) { return operation.param; });

} // namespace tarnwick::hdf::tests
