#include "Fixture.h"

#include <numeric>

namespace tarnwick::hdf::tests
{

constexpr hsize_t kRows = 1000;
// As many as the library moves by blocks.
constexpr hsize_t kManyRows = 300;

/// The numbers from `first` on: those of rows, and what the rows hold.
Dims RowsFrom(hsize_t first, hsize_t count)
{
    Dims rows(count);
    std::iota(rows.begin(), rows.end(), first);
    return rows;
}

struct Table : OpenFileTest
{
    /// Stores `count` rows, each with its number.
    boost::shared_ptr<ITable> Store(hsize_t count, int compression = 0, size_t chunkRows = 0)
    {
        return root->CreateTableFromBuffer("t", stored.data(), count, row.get(), compression, -1, chunkRows);
    }

    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_STD_U64LE \"number\"; }");
    Dims stored = RowsFrom(0, kRows);
};

TEST_F(Table, WithoutAFillValueLeavesTheBufferAsItIsWhereNothingWasWritten)
{
    const auto fillWithNothing = [this](hid_t list)
    {
        H5Pset_fill_value(list, row.get(), nullptr);
    };
    Make(rootId, "never filled", {row.get(), {kRows}, {100}, {}, &FillNever});
    Make(rootId, "no value", {row.get(), {kRows}, {100}, {}, fillWithNothing});
    for (const std::string name : {"never filled", "no value"})
    {
        const auto table = root->GetTable(name);
        // Without any row HDF5 refuses to read what has no value.
        table->SetToHyperslabFromSelection(stored.data(), 1, row.get(), 0, {0});
        Dims read(kManyRows, 7);

        table->GetFromSelection(read.data(), -1, RowsFrom(100, kManyRows));

        EXPECT_EQ(read, Dims(kManyRows, 7)) << name;
    }
}

TEST_F(Table, ReadByBlocksLeavesWhatTheBuffersTypeDoesNotName)
{
    const auto table = Store(kRows);
    const ScopedType everySecond(H5Tcopy(row.get()));
    H5Tset_size(everySecond.get(), 2 * sizeof(hsize_t));
    Dims read(2 * kManyRows, 7);

    table->GetFromSelection(read.data(), everySecond.get(), RowsFrom(100, kManyRows));

    EXPECT_EQ((Dims{read[0], read[1], read.back()}), (Dims{100, 7, 7}));
}

TEST_F(Table, RowsOutsideItOrTheBufferAreToldByTheTransfer)
{
    const auto table = Store(kRows);
    const std::string reading = "Error reading data set to a memory selection!:";
    hsize_t* const buffer = stored.data();
    const Dims many = RowsFrom(0, kManyRows);
    const Dims behind = RowsFrom(1, kManyRows);
    const Dims two = {0, 1};
    const Dims outside = {3, hsize_t{1} << 63U};

    ExpectWords({{[&] { table->GetToSelection(buffer, kManyRows, -1, many); }, reading},
                 {[&] { table->GetFromHyperslabToSelection(buffer, kManyRows, row.get(), 0, behind); }, reading},
                 {[&] { table->GetFromToSelection(buffer, kRows, -1, two, outside); }, reading},
                 {[&] { table->GetFromHyperslabToSelection(buffer, kRows, row.get(), 0, outside); }, reading}});
}

TEST_F(Table, WrittenWithItsOwnCompoundTypeStaysTheDataSetThatItIs)
{
    const auto table = Store(4, 0, 2);
    const hid_t dataSet = table->LocationID();

    table->SetFromBuffer(stored.data(), 4, table->GetCompoundTypeID(), 0);

    EXPECT_EQ(table->LocationID(), dataSet);
    EXPECT_EQ(StorageOf(dataSet), " chunk [2]");
}

TEST_F(Table, ThatIsClosedRemovesNothingThatHasItsNameByNow)
{
    const auto table = Store(4);
    EXPECT_THROW(table->ReOpen(rootId, "no"), std::runtime_error);

    EXPECT_THROW(table->SetFromBuffer(stored.data(), 5, -1, 0), std::runtime_error);

    EXPECT_EQ(root->GetTable("t")->GetNumberOfRows(), 4U);
}

TEST_F(Table, RefusesColumnsThatItHasNotAndATakenName)
{
    const auto table = Store(4);
    Names texts;

    ExpectWords({{[&] { table->GetColumnType(1); }, "Invalid column index: 1 (1 columns)"},
                 {[&] { table->FeedStringVector(texts, -1); }, "Invalid column index: -1 (1 columns)"},
                 {[&] { ITable::CreateEmpty(file, rootId, "t", row.get()); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::Create(file, rootId, "t", 1, row.get(), 0); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::CreateFromBuffer(file, rootId, "t", stored.data(), 1, row.get(), 0, 0, 0); },
                  "could not create dataset:"}});
}

} // namespace tarnwick::hdf::tests
