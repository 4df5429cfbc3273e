#include "Fixture.h"

#include <tarnwickhdf/typed.h>

#include <cstdlib>
#include <limits>

namespace tarnwick::hdf::tests
{

static_assert(ElementTypeOf<signed char>() == TDataType::Char && ElementTypeOf<std::uint8_t>() == TDataType::UChar);
static_assert(ElementTypeOf<std::int16_t>() == TDataType::Short && ElementTypeOf<std::uint16_t>() == TDataType::UShort);
static_assert(ElementTypeOf<std::int32_t>() == TDataType::Int && ElementTypeOf<std::uint32_t>() == TDataType::UInt);
static_assert(ElementTypeOf<long long>() == ElementTypeOf<std::int64_t>());
static_assert(ElementTypeOf<long>() == (sizeof(long) == 4 ? TDataType::Int : ElementTypeOf<std::int64_t>()));
static_assert(ElementTypeOf<float>() == TDataType::Float && ElementTypeOf<double>() == TDataType::Double);
static_assert(!std::is_copy_constructible_v<RowType<int[1]>>);

// Another test's struct may have the same name.
namespace
{

struct Place
{
    double east;
    double north;
};

struct Reading
{
    std::int64_t time = 0;
    double value = 0;
    Place place = {};
    FixedText<8> station;
    char unit[4] = "";
    std::array<std::int16_t, 2> levels{};
};

struct Padded
{
    std::int32_t count;
    double value;
};

const RowType<Place> kPlace = {{"east", &Place::east}, {"north", &Place::north}};
const RowType<Reading> kReading = {
    {"time", &Reading::time},       {"value", &Reading::value}, {"place", &Reading::place, kPlace},
    {"station", &Reading::station}, {"unit", &Reading::unit},   {"levels", &Reading::levels},
};

bool operator==(const Reading& one, const Reading& other)
{
    return one.time == other.time && one.value == other.value && one.station == other.station &&
           std::string(one.unit) == other.unit && one.levels == other.levels && one.place.east == other.place.east &&
           one.place.north == other.place.north;
}

std::vector<Reading> SomeReadings()
{
    // g++ 10 can't make a vector of texts in character arrays at once.
    const Reading readings[] = {{100, 20.5, {1.5, -2.5}, "north", "C", {1, 2}},
                                {160, -3.25, {0, 0}, "Zürich", "F", {-1, 1}},
                                {220, 0.125, {7, 8}, "", "", {}}};
    return {std::begin(readings), std::end(readings)};
}

} // namespace

struct Typed : OpenFileTest
{
    boost::shared_ptr<IGroup> group = root->CreateGroup("a/b");

    std::string Content(const std::string& name) const { return ContentOf(group->GetArray(name)->LocationID()); }
};

TEST_F(Typed, AnArrayIsStoredInPlaceWhileItsShapeStaysAndWithTheGroupsCompressionElse)
{
    group->SetDefaultCompression(6);

    StoreArray(*group, "v", std::vector<int>{1, 2, 3, 4})->SetAttr("kept", "yes");
    const boost::shared_ptr<IArray> again = StoreArray(*group, "v", std::vector<int>{5, 6, 7, 8});
    EXPECT_EQ(again->GetAttr("kept"), "yes");
    EXPECT_EQ(Content("v"), "[4] chunk [4] deflate 6: [5,6,7,8]");

    StoreArray(*group, "v", std::vector<int>{1, 2, 3, 4, 5, 6}, 2);
    EXPECT_EQ(Content("v"), "[3,2] chunk [3,2] deflate 6: [1,2,3,4,5,6]");
    StoreArray(*group, "v", std::vector<int>{});
    EXPECT_EQ(Content("v"), "[0]: []");
    StoreArray(*group, "v", std::vector<int>{}, 3);
    EXPECT_EQ(Content("v"), "[0,3]: []");
}

TEST_F(Typed, AnArrayIsReadIntoTheCallersVectorInTheCallersType)
{
    const boost::shared_ptr<IArray> array = StoreArray(*group, "v", std::vector<double>{1.5, -300, 70000});

    std::vector<std::int8_t> values(17, 99);
    ReadArray(*array, values);

    EXPECT_EQ(values, (std::vector<std::int8_t>{1, -128, 127}));
    EXPECT_EQ(ReadArray<double>(*group, "v"), (std::vector<double>{1.5, -300, 70000}));
    EXPECT_EQ(ReadArray<int>(*StoreArray(*group, "none", std::vector<double>{})), std::vector<int>());
    EXPECT_EQ(ReadArray<int>(*group->CreateArray("empty", TDataType::Int, 0)), std::vector<int>());
}

TEST_F(Typed, TextsOfAnyLengthComeBack)
{
    group->SetDefaultCompression(1);

    for (const Names& texts : {Names{"sun", "Zürich", ""}, Names{"", ""}, Names{}, Names{std::string(70000, 'x'), "y"}})
    {
        EXPECT_EQ(ReadArray<std::string>(*StoreArray(*group, "texts", texts)), texts);
    }
    // As long and as many as in place, but of another mark and of variable length.
    for (const std::string type :
         {"H5T_STRING { STRSIZE 8; STRPAD H5T_STR_NULLPAD; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; }",
          "H5T_STRING { STRSIZE H5T_VARIABLE; STRPAD H5T_STR_NULLTERM; CSET H5T_CSET_UTF8; CTYPE "
          "H5T_C_S1; }"})
    {
        const hsize_t two = 2;
        const ScopedSpace space(H5Screate_simple(1, &two, nullptr));
        group->DelArray("texts");
        ScopedDataSet(H5Dcreate2(group->LocationID(), "texts", TypeOf(type).get(), space.get(), 0, 0, 0));
        const Names texts = {"12345678", "Zürich"};
        EXPECT_EQ(ReadArray<std::string>(*StoreArray(*group, "texts", texts)), texts);
    }
}

TEST_F(Typed, ATableKeepsEveryMemberAndIsStoredInPlaceWhileItsShapeStays)
{
    std::vector<Reading> rows = SomeReadings();
    StoreTable(*group, "t", kReading, rows, 5, 2)->SetAttr("kept", "yes");
    rows[1].value = 99;

    const boost::shared_ptr<ITable> table = StoreTable(*group, "t", kReading, rows);

    EXPECT_EQ(table->GetAttr("kept"), "yes");
    EXPECT_EQ(ReadTable(*group, "t", kReading), rows);
    EXPECT_EQ(ReadTable(*table, kReading, {2, 0, 2}), (std::vector<Reading>{rows[2], rows[0], rows[2]}));
    EXPECT_EQ(ReadTable(*table, kReading, std::vector<hsize_t>()), std::vector<Reading>());
    EXPECT_EQ(ReadTable(*table, kReading, 0, 2, 2), (std::vector<Reading>{rows[0], rows[2]}));
    EXPECT_EQ(ContentOf(table->LocationID(), TypeOf("H5T_COMPOUND { H5T_STD_I32LE \"time\"; }").get()),
              "[3] chunk [2] deflate 5: [100,160,220]");

    rows.pop_back();
    StoreTable(*group, "t", kReading, rows, 5, 1000);
    EXPECT_EQ(ReadTable(*group, "t", kReading), rows);
    StoreTable(*group, "t", kReading, std::vector<Reading>(), 5, 1000);
    EXPECT_EQ(ReadTable(*group, "t", kReading), std::vector<Reading>());
}

TEST_F(Typed, ATablesColumnsAreFoundByNameAndConverted)
{
    struct Part
    {
        float value;
        std::array<double, 2> levels;
        FixedText<12> station;
    };
    const RowType<Part> part = {{"station", &Part::station}, {"value", &Part::value}, {"levels", &Part::levels}};
    const boost::shared_ptr<ITable> table = StoreTable(*group, "t", kReading, SomeReadings());

    const std::vector<Part> rows = ReadTable(*table, part);

    EXPECT_EQ(rows[1].station.Text(), "Zürich");
    EXPECT_EQ(rows[1].value, -3.25F);
    EXPECT_EQ(rows[0].levels[1], 2);
}

TEST_F(Typed, AFixedTextIsCutAtTheBorderOfACharacter)
{
    FixedText<8> text = "12345678";

    EXPECT_EQ(text.Text(), "12345678");
    text = "1234567é";
    EXPECT_EQ(text.Text(), "1234567");
    text = std::string("12345€€");
    EXPECT_EQ(text.Text(), "12345€");
    text = "a";
    EXPECT_EQ(text, FixedText<8>(std::string_view("a")));
    EXPECT_NE(text, FixedText<8>("a2345678"));
}

TEST_F(Typed, RowsAreAppendedAndReadAsBlocks)
{
    const auto log = MakeExtensibleArray2D<double>(*group, "log", 2, 16);

    AppendRows(*log, std::vector<int>{1, 2, 3, 4});
    AppendRows<double>(*log, {5, 6});
    AppendRows<double>(*log, {});

    EXPECT_EQ(ContentOf(log->LocationID()), "[3,2] chunk [16,2]: [1,2,3,4,5,6]");
    EXPECT_EQ(ReadRows<float>(*log, 1, 2), (std::vector<float>{3, 4, 5, 6}));
    EXPECT_EQ(ReadRows<int>(*log), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(ReadRows<int>(*log, 3, 0), std::vector<int>());
}

TEST_F(Typed, AttributesComeBackAsTheyWere)
{
    const Names texts = {"Zürich", "", "x"};
    StoreAttr(*group, "text", "m/s");
    StoreAttr(*group, "texts", texts);
    StoreAttr(*group, "number", 20.25);
    StoreAttr(*group, "number", std::uint8_t{200}); // replaces
    StoreAttr(*group, "numbers", std::vector<float>{1.5F, 2.5F});
    StoreAttr(*group, "nothing", std::vector<int>());
    StoreAttr(*group, "yes", true);
    StoreAttr(*group, "mixed", std::vector<bool>{false, true});

    EXPECT_EQ(ReadAttr<std::string>(*group, "text"), "m/s");
    EXPECT_EQ(ReadAttr<Names>(*group, "text"), Names{"m/s"});
    EXPECT_EQ(ReadAttr<Names>(*group, "texts"), texts);
    EXPECT_EQ(ReadAttr<int>(*group, "number"), 200);
    EXPECT_EQ(group->GetAttrType("number"), TDataType::UChar);
    EXPECT_EQ(ReadAttr<std::vector<double>>(*group, "numbers"), (std::vector<double>{1.5, 2.5}));
    EXPECT_EQ(ReadAttr<std::vector<double>>(*group, "nothing"), std::vector<double>());
    EXPECT_TRUE(ReadAttr<bool>(*group, "yes"));
    EXPECT_EQ(ReadAttr<std::vector<bool>>(*group, "mixed"), (std::vector<bool>{false, true}));
}

// What goes wrong is told with the path before it, before anything is written, and leaks nothing.
TEST_F(Typed, AWrongUseIsToldWithThePathOfTheObject)
{
    struct Wrong
    {
        std::array<int, 3> three;
        char text[4];
        int number;
        Place place;
    };
    const RowType<Wrong> misspelt = {{"tine", &Wrong::number}};
    const RowType<Wrong> numberForText = {{"station", &Wrong::number}};
    const RowType<Wrong> textForNumber = {{"time", &Wrong::text}};
    const RowType<Wrong> shortText = {{"station", &Wrong::text}};
    const RowType<Wrong> otherSize = {{"levels", &Wrong::three}};
    const RowType<Wrong> rowForNumber = {{"time", &Wrong::place, kPlace}};
    const RowType<Place> otherPlace = {{"east", &Place::east}, {"up", &Place::north}};
    const RowType<Wrong> misspeltInside = {{"place", &Wrong::place, otherPlace}};
    const auto table = StoreTable(*group, "t", kReading, SomeReadings());
    const auto numbers = StoreArray(*group, "v", std::vector<int>{1, 2, 3});
    const auto texts = StoreArray(*group, "s", {"a", "b"});
    const auto log = MakeExtensibleArray2D<int>(*group, "log", 3, 4);
    const auto textLog = group->CreateExtensibleArray2D("text log", TDataType::String, 1, 1, 1, 1, 0);
    StoreAttr(*group, "unit", "m/s");
    StoreAttr(*group, "numbers", std::vector<int>{1, 2});

    ExpectWords({
        {[&] { ReadTable(*table, misspelt); },
         "/a/b/t: no column 'tine'; there are time, value, place, station, unit, levels"},
        {[&] { ReadTable(*table, misspeltInside); }, "/a/b/t: no column 'place.up'; there are east, north"},
        {[&] { ReadTable(*table, numberForText, {0}); }, "/a/b/t: column 'station' holds no numbers"},
        {[&] { ReadTable(*table, textForNumber, 0, 1, 1); }, "/a/b/t: column 'time' holds no text"},
        {[&] { ReadTable(*table, shortText); },
         "/a/b/t: column 'station' holds texts of 8 bytes, more than the row's 4"},
        {[&] { ReadTable(*table, otherSize); }, "/a/b/t: column 'levels' holds no arrays of 3 elements"},
        {[&] { ReadTable(*table, rowForNumber); }, "/a/b/t: column 'time' holds no rows"},
        {[&] { ReadTable(*table, kReading, {3}); }, "/a/b/t: Error -1 while reading from dataset 't':"},
        {[&] { ReadTable(*group, "v", kReading); }, "/a/b/v: could not open Table 'v':"},
        {[&] { StoreTable(*group, "v", kReading, SomeReadings()); }, "/a/b/v: could not open Table 'v':"},
        {[&] {
             RowType<Place>({{"same", &Place::east}, {"same", &Place::north}});
         },
         "could not add column 'same': member name is not unique"},
        {[&] { StoreArray(*group, "t", std::vector<int>{1}); }, "/a/b/t: H5T_COMPOUND is not a valid Array:"},
        {[&] {
             StoreArray(*group, "m", std::vector<int>{1, 2, 3}, 2);
         },
         "/a/b/m: 3 values are no whole rows of 2"},
        {[&] {
             StoreArray(*group, "m", std::vector<int>{1, 2, 3}, 0);
         },
         "/a/b/m: 3 values are no whole rows of 0"},
        {[&] { StoreArray(*group, "/x/y", {std::string("a\0b", 3)}); }, "/x/y: text 0 has a NUL byte in it"},
        {[&] { StoreArray(*root, "no/where", {"a"}); }, "/no/where: could not create dataset:"},
        {[&] { ReadArray<double>(*texts); }, "/a/b/s: holds texts, which are read as std::string"},
        {[&] { ReadArray<std::string>(*numbers); }, "/a/b/v: holds no texts"},
        {[&] { ReadValue<int>(*numbers); }, "/a/b/v: holds 3 values, not one"},
        {[&] { ReadArray<int>(*group, "missing"); }, "/a/b/missing: Array does not exist:"},
        {[&] { MakeExtensibleArray2D<int>(*group, "log", 3, 4); },
         "/a/b/log: could not be created, because its name is taken, a group above it is missing or a size is 0"},
        {[&] {
             AppendRows<int>(*log, {1, 2});
         },
         "/a/b/log: 2 values are no whole rows of 3"},
        {[&] { ReadRows<int>(*log, 0, 1); }, "/a/b/log: has no rows 0 to 1, it has 0"},
        {[&] { AppendRows<int>(*textLog, {1}); }, "/a/b/text log: holds texts"},
        {[&] { ReadRows<int>(*textLog); }, "/a/b/text log: holds texts"},
        {[&] { ReadAttr<int>(*group, "none"); },
         "/a/b: attribute 'none': could not open it: can't locate attribute: 'none'"},
        {[&] { ReadAttr<std::string>(*group, "none"); }, "/a/b: attribute 'none': invalid attribute name: none:"},
        {[&] { ReadAttr<int>(*group, "unit"); }, "/a/b: attribute 'unit': holds no numbers"},
        {[&] { ReadAttr<bool>(*group, "unit"); }, "/a/b: attribute 'unit': holds no booleans"},
        {[&] { ReadAttr<Names>(*group, "numbers"); }, "/a/b: attribute 'numbers': holds no texts"},
        {[&] { ReadAttr<int>(*group, "numbers"); }, "/a/b: attribute 'numbers': holds 2 values, not one"},
        {[&] { StoreAttr(*group, "long", std::vector<int>(20000)); },
         "/a/b: attribute 'long': could not create it: object header message is too large"},
    });
    EXPECT_EQ(ReadTable(*table, kReading), SomeReadings());
    EXPECT_EQ(log->GetNumberOfRows(), 0U);

    file->Close();
    EXPECT_EQ(WordsOf([&] { ReadTable(*table, kReading); }), "t: Error -1 while reading from dataset 't':");
}

TEST_F(Typed, AReasonIsOneLineOfTheWordsAndTheInnermostReason)
{
    const auto reasonOf = [](const std::string& text)
    {
        return ReasonOf(std::runtime_error(text));
    };

    EXPECT_EQ(
        reasonOf("could not open:\n#0: in func H5Dopen1(): not found\n  major: Dataset\n  minor: Object not found\n"
                 "#1: in func H5G_loc(): 'x' (): missing\n  major: Symbol\n  minor: None\n"),
        "could not open: 'x' (): missing");
    EXPECT_EQ(reasonOf("not a valid Array"), "not a valid Array");
    EXPECT_EQ(reasonOf("DataSet already created!:\n"), "DataSet already created!");
    EXPECT_EQ(reasonOf("two\nlines"), "two lines");
    EXPECT_EQ(reasonOf(""), "");
}

TEST_F(Typed, NothingIsPrintedBeforeTheFirstOpen)
{
    const auto openMissing = [path = Path("missing.h5")](bool keepQuiet)
    {
        H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(&H5Eprint2), stderr);
        if (keepQuiet)
        {
            KeepHdf5Quiet();
        }
        ::testing::internal::CaptureStderr();
        EXPECT_THROW(IFile::Open(path, "r", 0), std::runtime_error);
        return ::testing::internal::GetCapturedStderr();
    };

    EXPECT_NE(openMissing(false), "");
    EXPECT_EQ(openMissing(true), "");
}

/// Runs typed_foreign.py on files of this test's directory.
bool RunPython(const std::string& command, const std::string& path)
{
    const std::string line =
        std::string(TARNWICKHDF_PYTHON " " TARNWICKHDF_TESTS "/typed_foreign.py ") + command + " " + path;
    return std::system(line.c_str()) == 0;
}

/// Calls with a value of each number type and its name in numpy.
template <typename Call>
void ForEachNumberType(Call call)
{
    call(std::int8_t{}, "int8");
    call(std::int16_t{}, "int16");
    call(std::int32_t{}, "int32");
    call(std::int64_t{}, "int64");
    call(std::uint8_t{}, "uint8");
    call(std::uint16_t{}, "uint16");
    call(std::uint32_t{}, "uint32");
    call(std::uint64_t{}, "uint64");
    call(float{}, "float32");
    call(double{}, "float64");
}

template <typename Number>
std::vector<Number> Extremes()
{
    return {std::numeric_limits<Number>::lowest(), Number{1}, std::numeric_limits<Number>::max()};
}

TEST_F(Typed, H5pyAndPyTablesReadWhatIsStored)
{
    ForEachNumberType(
        [&](auto zero, const std::string& name)
        {
            using Number = decltype(zero);
            StoreArray(*root, name, Extremes<Number>());
            StoreAttr(*root, name, Extremes<Number>());
            StoreAttr(*root, name + " scalar", std::numeric_limits<Number>::max());
        });
    StoreArray(*root, "matrix", std::vector<int>{1, 2, 3, 4, 5, 6}, 2);
    StoreArray(*root, "texts", {"sun", "Zürich", ""});
    StoreTable(*root, "table", kReading, SomeReadings(), 6, 2);
    static const Padded padded[] = {{1, 1.5}, {2, 2.5}}; // static: the bytes between the members are stored too
    StoreTable(*root, "padded", RowType<Padded>{{"count", &Padded::count}, {"value", &Padded::value}},
               std::vector<Padded>(std::begin(padded), std::end(padded)));
    AppendRows<float>(*MakeExtensibleArray2D<float>(*root, "log", 2, 8), {1, 2, 3, 4});
    StoreAttr(*root, "text", "Zürich");
    StoreAttr(*root, "texts", Names{"Zürich", "x"});
    StoreAttr(*root, "yes", true);
    StoreAttr(*root, "mixed", std::vector<bool>{false, true});
    file->Close();

    EXPECT_TRUE(RunPython("check", Path("test.h5")));
}

TEST_F(Typed, WhatH5pyAndPyTablesStoreIsRead)
{
    ASSERT_TRUE(RunPython("write", Path("foreign.h5")));
    const auto foreign = IFile::Open(Path("foreign.h5"), "r", 0);

    for (const std::string writer : {"h5py", "PyTables"})
    {
        SCOPED_TRACE(writer);
        const auto stored = foreign->GetRoot()->GetGroup(writer);
        ForEachNumberType(
            [&](auto zero, const std::string& name)
            {
                using Number = decltype(zero);
                EXPECT_EQ(ReadArray<Number>(*stored, name), Extremes<Number>()) << name;
                EXPECT_EQ(ReadAttr<std::vector<Number>>(*stored, name), Extremes<Number>()) << name;
                EXPECT_EQ(ReadAttr<Number>(*stored, name + "_scalar"), std::numeric_limits<Number>::max()) << name;
            });
        EXPECT_EQ(ReadValue<double>(*stored->GetArray("scalar")), 4.5);
        EXPECT_EQ(ReadArray<int>(*stored, "scalar"), std::vector<int>{4});
        EXPECT_EQ(ReadArray<std::string>(*stored, "texts"), (Names{"sun", "rain"}));
        EXPECT_EQ(ReadTable(*stored, "table", kReading), SomeReadings());
        EXPECT_EQ(ReadAttr<std::string>(*stored, "text"), "Zürich");
        EXPECT_EQ(ReadAttr<Names>(*stored, "texts"), (Names{"a", "bcd"}));
        EXPECT_EQ(ReadAttr<std::string>(*stored, "nothing"), "");
        EXPECT_EQ(ReadAttr<std::vector<int>>(*stored, "big_endian"), (std::vector<int>{1, -2}));
        EXPECT_TRUE(ReadAttr<bool>(*stored, "yes"));
        EXPECT_EQ(ReadAttr<std::vector<bool>>(*stored, "mixed"), (std::vector<bool>{false, true}));
    }
    const auto h5py = foreign->GetRoot()->GetGroup("h5py");
    EXPECT_EQ(ReadArray<std::string>(*h5py, "variable"), (Names{"sun", "Zürich", ""}));
    EXPECT_EQ(ReadArray<std::string>(*h5py, "one text"), Names{"Zürich"});
    EXPECT_EQ(ReadArray<std::string>(*h5py, "rows of texts"), (Names{"a", "b", "c", "d"}));
    EXPECT_EQ(ReadAttr<Names>(*h5py, "variable"), (Names{"sun", "Zürich", ""}));
    EXPECT_EQ(ReadTable(*h5py, "one row", kPlace).at(0).north, 2);
    EXPECT_EQ(WordsOf(
                  [&] {
                      ReadTable(*h5py, "variable texts", RowType<Reading>{{"station", &Reading::station}});
                  }),
              "/h5py/variable texts: column 'station' holds texts of variable length, which ITable::FeedStringVector "
              "reads");
}

} // namespace tarnwick::hdf::tests
