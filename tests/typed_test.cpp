#include "Fixture.h"

#include <tarnwickhdf/typed.h>

#include <limits>

namespace tarnwick::hdf::tests
{

static_assert(ElementTypeOf<signed char>() == TDataType::Char && ElementTypeOf<std::uint8_t>() == TDataType::UChar);
static_assert(ElementTypeOf<long long>() == ElementTypeOf<std::int64_t>());
static_assert(ElementTypeOf<long>() == (sizeof(long) == 4 ? TDataType::Int : ElementTypeOf<std::int64_t>()));

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

struct Typed : OpenFileTest
{
    boost::shared_ptr<IGroup> group = root->CreateGroup("a/b");
};

TEST_F(Typed, AnArrayIsStoredInPlaceWhileItsShapeStaysAndWithTheGroupsCompressionElse)
{
    group->SetDefaultCompression(6);

    StoreArray(*group, "v", Ints{1, 2, 3, 4})->SetAttr("kept", "yes");
    EXPECT_EQ(StoreArray(*group, "v", Ints{5, 6, 7, 8})->GetAttr("kept"), "yes");
    EXPECT_EQ(ContentOf(group->GetArray("v")->LocationID()), "[4] chunk [4] deflate 6: [5,6,7,8]");

    StoreArray(*group, "v", Ints{1, 2, 3, 4, 5, 6}, 2);
    EXPECT_EQ(ContentOf(group->GetArray("v")->LocationID()), "[3,2] chunk [3,2] deflate 6: [1,2,3,4,5,6]");
    StoreArray(*group, "v", Ints(), 3);
    EXPECT_EQ(ContentOf(group->GetArray("v")->LocationID()), "[0,3]: []");
    EXPECT_EQ(ReadArray<int>(*group, "v"), Ints());
    EXPECT_EQ(ReadArray<int>(*group->CreateArray("null", TDataType::Int, 0)), Ints());
}

TEST_F(Typed, TextsOfAnyLengthComeBack)
{
    group->SetDefaultCompression(1);
    // The second of these finds the first in the memory that it fills.
    const Names longer(200, "longer");
    Names shorter(200, "x");
    shorter.front() = "longer";
    for (const Names& texts :
         {Names{"sun", "Zürich", ""}, Names{"", ""}, Names{}, Names{std::string(70000, 'x'), "y"}, longer, shorter})
    {
        EXPECT_EQ(ReadArray<std::string>(*StoreArray(*group, "texts", texts)), texts);
    }
    // As long and as many as in place, but of another character set.
    group->DelArray("texts");
    Make(group->LocationID(), "texts", {TextType(8).get(), {2}});
    const Names texts = {"12345678", "Zürich"};
    EXPECT_EQ(ReadArray<std::string>(*StoreArray(*group, "texts", texts)), texts);
}

TEST_F(Typed, ATextWithANulByteAtAnyPlaceIsRefused)
{
    for (const size_t length : {1U, 7U, 8U, 20U})
    {
        for (size_t place = 0; place < length; ++place)
        {
            std::string text(length, '\xFF');
            text[place] = '\0';

            const std::string words = WordsOf([&] { StoreArray(*group, "t", Names{"ok", text}); });

            EXPECT_EQ(words, "/a/b/t: text 1 has a NUL byte in it") << "byte " << place << " of " << length;
        }
    }
}

TEST_F(Typed, ATableKeepsEveryMemberAndIsStoredInPlaceWhileItsShapeStays)
{
    std::vector<Reading> rows = SomeReadings();
    StoreTable(*group, "t", kReading, rows, 5, 2)->SetAttr("kept", "yes");
    rows[1].value = 99;

    const boost::shared_ptr<ITable> table = StoreTable(*group, "t", kReading, rows);

    EXPECT_EQ(table->GetAttr("kept"), "yes");
    EXPECT_EQ(StorageOf(table->LocationID()), " chunk [2] deflate 5");
    EXPECT_EQ(ReadTable(*group, "t", kReading), rows);
    EXPECT_EQ(ReadTable(*table, kReading, {2, 0, 2}), (std::vector<Reading>{rows[2], rows[0], rows[2]}));
    EXPECT_EQ(ReadTable(*table, kReading, Dims()), std::vector<Reading>());
    EXPECT_EQ(ReadTable(*table, kReading, 0, 2, 2), (std::vector<Reading>{rows[0], rows[2]}));
    EXPECT_TRUE(ReadTable(*StoreTable(*group, "t", kReading, {}, 5, 1000), kReading).empty());
}

TEST_F(Typed, ATableOfAnotherRowTypeOfTheSameSizeIsReplaced)
{
    const RowType<Place> otherNames = {{"x", &Place::east}, {"y", &Place::north}};
    StoreTable(*group, "t", kPlace, {{1, 2}});

    EXPECT_EQ(StoreTable(*group, "t", otherNames, {{3, 4}})->GetColumnName(0), "x");

    EXPECT_EQ(ReadTable(*group, "t", otherNames).at(0).north, 4);
}

TEST_F(Typed, AFixedTextIsCutAtTheBorderOfACharacter)
{
    EXPECT_EQ(FixedText<8>("12345678").Text(), "12345678");
    EXPECT_EQ(FixedText<8>("1234567é").Text(), "1234567");
    EXPECT_EQ(FixedText<8>(std::string("12345€€")).Text(), "12345€");
    EXPECT_NE(FixedText<8>("1"), FixedText<8>("12345678"));
}

TEST_F(Typed, ATableIsNotReadIntoRowsThatDoNotFit)
{
    struct Wrong
    {
        std::array<int, 3> three;
        char text[4];
        int number;
        Place place;
    };
    const RowType<Place> otherPlace = {{"east", &Place::east}, {"up", &Place::north}};
    const auto table = StoreTable(*group, "t", kReading, SomeReadings());
    const auto wordsFor = [&](const char* column, const auto&... member)
    {
        return WordsOf([&] { ReadTable(*table, RowType<Wrong>{{column, member...}}); });
    };

    EXPECT_EQ(wordsFor("tine", &Wrong::number),
              "/a/b/t: no column 'tine'; there are time, value, place, station, unit, levels");
    EXPECT_EQ(wordsFor("place", &Wrong::place, otherPlace), "/a/b/t: no column 'place.up'; there are east, north");
    EXPECT_EQ(wordsFor("time", &Wrong::place, kPlace), "/a/b/t: column 'time' holds no rows");
    EXPECT_EQ(wordsFor("station", &Wrong::number), "/a/b/t: column 'station' holds no numbers");
    EXPECT_EQ(wordsFor("time", &Wrong::text), "/a/b/t: column 'time' holds no text");
    EXPECT_EQ(wordsFor("station", &Wrong::text),
              "/a/b/t: column 'station' holds texts of 8 bytes, more than the row's 4");
    EXPECT_EQ(wordsFor("levels", &Wrong::three), "/a/b/t: column 'levels' holds no arrays of 3 elements");
    file->Close();
    EXPECT_EQ(WordsOf([&] { ReadTable(*table, kReading); }), "t: Error -1 while reading from dataset 't':");
}

TEST_F(Typed, AWrongUseIsToldWithThePathOfTheObjectAndLeaksNothing)
{
    const Ints three = {1, 2, 3};
    const auto numbers = StoreArray(*group, "v", three);
    const auto texts = StoreArray(*group, "s", {"a", "b"});
    const auto log = MakeExtensibleArray2D<int>(*group, "log", 2, 4);
    StoreAttr(*group, "unit", "m/s");
    StoreAttr(*group, "numbers", three);
    StoreAttr(*group, "nothing", Ints());

    ExpectWords({
        {[&] { StoreArray(*group, "m", three, 2); }, "/a/b/m: 3 values are no whole rows of 2"},
        {[&] { StoreArray(*group, "/x/y", {std::string("a\0b", 3)}); }, "/x/y: text 0 has a NUL byte in it"},
        {[&] { ReadArray<double>(*texts); }, "/a/b/s: holds texts, which are read as std::string"},
        {[&] { ReadArray<std::string>(*numbers); }, "/a/b/v: holds no texts"},
        {[&] { ReadValue<int>(*numbers); }, "/a/b/v: holds 3 values, not one"},
        {[&] { ReadArray<int>(*root, "missing"); }, "/missing: Array does not exist:"},
        {[&] { MakeExtensibleArray2D<int>(*group, "log", 3, 4); },
         "/a/b/log: could not be created, because its name is taken, a group above it is missing or a size is 0"},
        {[&] { AppendRows<int>(*log, three); }, "/a/b/log: 3 values are no whole rows of 2"},
        {[&] { ReadRows<int>(*log, 0, 1); }, "/a/b/log: has no rows 0 to 1, it has 0"},
        {[&] { ReadAttr<int>(*group, "none"); },
         "/a/b: attribute 'none': could not open it: can't locate attribute: 'none'"},
        {[&] { ReadAttr<int>(*group, "unit"); }, "/a/b: attribute 'unit': holds no numbers"},
        {[&] { ReadAttr<bool>(*group, "unit"); }, "/a/b: attribute 'unit': holds no booleans"},
        {[&] { ReadAttr<Names>(*group, "numbers"); }, "/a/b: attribute 'numbers': holds no texts"},
        {[&] { ReadAttr<int>(*group, "nothing"); }, "/a/b: attribute 'nothing': holds 0 values, not one"},
        {[&] { StoreAttr(*group, "long", Ints(20000)); },
         "/a/b: attribute 'long': could not create it: object header message is too large"},
    });
}

TEST_F(Typed, AReasonIsOneLineOfTheWordsAndTheInnermostReason)
{
    const std::string traceback =
        "could not open:\n#0: in func H5Dopen1(): not found\n  major: Dataset\n  minor: Object not found\n"
        "#1: in func H5G_loc(): 'x' (): missing\n  major: Symbol\n  minor: None\n";

    EXPECT_EQ(ReasonOf(std::runtime_error(traceback)), "could not open: 'x' (): missing");
    EXPECT_EQ(ReasonOf(std::runtime_error("DataSet already created!:\n")), "DataSet already created!");
}

TEST_F(Typed, NothingIsPrintedOfADataSetWithoutChunksNorAtAllOnceHdf5IsKeptQuiet)
{
    Make(rootId, "contiguous", {H5T_NATIVE_INT, {4000}}, Ints(4000).data());
    H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(&H5Eprint2), stderr);
    ::testing::internal::CaptureStderr();

    ReadArray<int>(*root, "contiguous");
    KeepHdf5Quiet();
    EXPECT_THROW(Open("missing.h5", "r"), std::runtime_error);

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
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
std::vector<Number> Extremes(Number /*zero*/)
{
    return {std::numeric_limits<Number>::lowest(), Number{1}, std::numeric_limits<Number>::max()};
}

TEST_F(Typed, WhatIsStoredIsReadByH5pyAndPyTablesAndWhatTheyStoreIsRead)
{
    const Names texts = {"sun", "Zürich", ""};
    ForEachNumberType(
        [&](auto zero, const std::string& name)
        {
            StoreArray(*root, name, Extremes(zero));
            StoreAttr(*root, name, Extremes(zero));
            StoreAttr(*root, name + "_scalar", Extremes(zero)[2]);
        });
    StoreArray(*root, "matrix", Ints{1, 2, 3, 4, 5, 6}, 2);
    StoreArray(*root, "texts", texts);
    StoreTable(*root, "table", kReading, SomeReadings(), 6, 2);
    const auto log = MakeExtensibleArray2D<float>(*root, "log", 2, 8);
    AppendRows(*log, Ints{1, 2, 3, 4});
    AppendRows<float>(*log, {5, 6});
    AppendRows<float>(*log, {});
    EXPECT_EQ(ReadRows<int>(*log, 1, 2), (Ints{3, 4, 5, 6}));
    StoreAttr(*root, "texts", Ints());
    EXPECT_EQ(ReadAttr<Ints>(*root, "texts"), Ints());
    StoreAttr(*root, "texts", texts);
    StoreAttr(*root, "yes", true);
    StoreAttr(*root, "mixed", std::vector<bool>{false, true});
    file->Close();

    const std::string copy = TARNWICKHDF_PYTHON " " TARNWICKHDF_TESTS "/typed_foreign.py ";
    ASSERT_EQ(std::system((copy + Path("test.h5") + " " + Path("theirs.h5")).c_str()), 0);

    file = Open("theirs.h5", "r");
    for (const std::string writer : {"h5py", "PyTables"})
    {
        SCOPED_TRACE(writer);
        const auto theirs = file->GetRoot()->GetGroup(writer);
        ForEachNumberType(
            [&](auto zero, const std::string& name)
            {
                using Number = decltype(zero);
                EXPECT_EQ(ReadArray<Number>(*theirs, name), Extremes(zero)) << name;
                EXPECT_EQ(ReadAttr<std::vector<Number>>(*theirs, name), Extremes(zero)) << name;
                EXPECT_EQ(ReadAttr<Number>(*theirs, name + "_scalar"), Extremes(zero)[2]) << name;
            });
        EXPECT_EQ(ContentOf(theirs->GetArray("matrix")->LocationID()), "[3,2]: [1,2,3,4,5,6]");
        EXPECT_EQ(ReadValue<double>(*theirs->GetArray("scalar")), 4.5);
        EXPECT_EQ(ReadArray<int>(*theirs, "scalar"), Ints{4});
        EXPECT_EQ(ReadArray<std::string>(*theirs, "words"), (Names{"sun", "rain"}));
        EXPECT_EQ(ReadTable(*theirs, "table", kReading), SomeReadings());
        EXPECT_EQ(ReadAttr<std::string>(*theirs, "text"), "Zürich");
        EXPECT_EQ(ReadAttr<Names>(*theirs, "text"), Names{"Zürich"});
        EXPECT_EQ(ReadAttr<Names>(*theirs, "words"), (Names{"a", "bcd"}));
        EXPECT_EQ(ReadAttr<std::string>(*theirs, "nothing"), "");
        EXPECT_EQ(ReadAttr<Ints>(*theirs, "big_endian"), (Ints{1, -2}));
        EXPECT_TRUE(ReadAttr<bool>(*theirs, "yes"));
        EXPECT_EQ(ReadAttr<std::vector<bool>>(*theirs, "mixed"), (std::vector<bool>{false, true}));
    }
    const auto h5py = file->GetRoot()->GetGroup("h5py");
    EXPECT_EQ(ReadArray<int>(*h5py, "log"), (Ints{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(ReadArray<std::string>(*h5py, "texts"), texts);
    EXPECT_EQ(ReadAttr<Names>(*h5py, "texts"), texts);
    EXPECT_EQ(ReadArray<std::string>(*h5py, "one text"), Names{"Zürich"});
    EXPECT_EQ(ReadArray<std::string>(*h5py, "rows of texts"), (Names{"a", "b", "c", "d"}));
    EXPECT_EQ(ReadTable(*h5py, "one row", kPlace).at(0).north, -2.5);
    const RowType<Reading> station = {{"station", &Reading::station}};
    EXPECT_EQ(WordsOf([&] { ReadTable(*h5py, "variable texts", station); }),
              "/h5py/variable texts: column 'station' holds texts of variable length, which ITable::FeedStringVector "
              "reads");
}

} // namespace tarnwick::hdf::tests
