#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>

namespace tarnwick::hdf
{

namespace
{

using DataTypeTable = std::map<TDataType::TDataType, hid_t>;

// What tells one number type from the others before HDF5 has to compare.
struct NumberRow
{
    H5T_class_t numberClass;
    size_t size;
    H5T_sign_t sign;
    TDataType::TDataType dataType;
    hid_t hdfType;
};

DataTypeTable dataTypeTable;
// The first row of each set of equal types, in ascending order of value.
std::vector<NumberRow> distinctNumbers;
// For each row of the table the first row that is the same type.
std::map<hid_t, TDataType::TDataType> firstEqualOfId;
std::atomic<bool> tablesFilled{false};
std::mutex tablesMutex;

NumberRow Describe(hid_t type, H5T_class_t numberClass, TDataType::TDataType dataType)
{
    const H5T_sign_t sign = numberClass == H5T_INTEGER ? H5Tget_sign(type) : H5T_SGN_NONE;
    return {numberClass, H5Tget_size(type), sign, dataType, type};
}

TDataType::TDataType FindFirstEqual(const std::vector<NumberRow>& rows, const NumberRow& number)
{
    for (const NumberRow& row : rows)
    {
        if (row.numberClass == number.numberClass && row.size == number.size && row.sign == number.sign &&
            H5Tequal(row.hdfType, number.hdfType) != 0)
        {
            return row.dataType;
        }
    }
    return TDataType::Undefined;
}

DataTypeTable PredefinedTypes()
{
    return {
        {TDataType::Char, H5T_NATIVE_SCHAR},     {TDataType::UChar, H5T_NATIVE_UCHAR},
        {TDataType::Short, H5T_NATIVE_SHORT},    {TDataType::UShort, H5T_NATIVE_USHORT},
        {TDataType::Int, H5T_NATIVE_INT},        {TDataType::UInt, H5T_NATIVE_UINT},
        {TDataType::Int64, H5T_STD_I64LE},       {TDataType::UInt64, H5T_STD_U64LE},
        {TDataType::Long, H5T_NATIVE_LONG},      {TDataType::ULong, H5T_NATIVE_ULONG},
        {TDataType::LongLong, H5T_NATIVE_LLONG}, {TDataType::ULongLong, H5T_NATIVE_ULLONG},
        {TDataType::Float, H5T_NATIVE_FLOAT},    {TDataType::Double, H5T_NATIVE_DOUBLE},
        {TDataType::Float32, H5T_IEEE_F32LE},    {TDataType::Float64, H5T_IEEE_F64LE},
        {TDataType::String, H5T_C_S1},
    };
}

void FillTables()
{
    DataTypeTable table = PredefinedTypes();
    std::vector<NumberRow> numbers;
    std::map<hid_t, TDataType::TDataType> firstEqual;
    for (const auto& [dataType, hdfType] : table)
    {
        const NumberRow type = Describe(hdfType, H5Tget_class(hdfType), dataType);
        // What HDF5 can't tell now is asked again at the next translation: the tables stay for the whole process.
        if (type.numberClass < 0 || type.size == 0 || type.sign < 0)
        {
            return;
        }
        const bool isNumber = type.numberClass == H5T_INTEGER || type.numberClass == H5T_FLOAT;
        TDataType::TDataType first = isNumber ? FindFirstEqual(numbers, type) : dataType;
        if (first == TDataType::Undefined)
        {
            first = dataType;
            numbers.push_back(type);
        }
        firstEqual.emplace(hdfType, first);
    }
    const std::lock_guard<std::mutex> lock(tablesMutex);
    if (!tablesFilled)
    {
        dataTypeTable.swap(table);
        distinctNumbers.swap(numbers);
        firstEqualOfId.swap(firstEqual);
        tablesFilled = true;
    }
}

// Threads with a file each may meet here with the first translation of the process. None waits for another that is in
// HDF5: a listing translates while it holds HDF5's own lock. So each fills tables of its own, and the first ones stay.
void FillTablesOnce()
{
    if (!tablesFilled)
    {
        FillTables();
    }
}

bool IsSequenceOfStrings(hid_t variableLengthType)
{
    const ScopedType element(H5Tget_super(variableLengthType));
    return H5Tget_class(element.get()) == H5T_STRING;
}

} // namespace

TDataType::TDataType FindDataType(hid_t type)
{
    FillTablesOnce();
    const auto predefined = firstEqualOfId.find(type);
    if (predefined != firstEqualOfId.end())
    {
        return predefined->second;
    }
    const H5T_class_t typeClass = H5Tget_class(type);
    switch (typeClass)
    {
    case H5T_NO_CLASS:
        // An id that HDF5 can't compare has always counted as the first row of the table.
        return TDataType::Char;
    case H5T_INTEGER:
    case H5T_FLOAT:
        return FindFirstEqual(distinctNumbers, Describe(type, typeClass, TDataType::Undefined));
    case H5T_STRING:
        return TDataType::String;
    case H5T_VLEN:
        return IsSequenceOfStrings(type) ? TDataType::VarLenString : TDataType::Undefined;
    default:
        return TDataType::Undefined;
    }
}

// HDF5 takes as long for an id and itself as for any two.
bool IsSameType(hid_t one, hid_t other)
{
    return one == other || H5Tequal(one, other) > 0;
}

hid_t INode::DataTypeToHDFType(TDataType::TDataType type)
{
    FillTablesOnce();
    const auto row = dataTypeTable.find(type);
    if (row == dataTypeTable.end())
    {
        CheckResult(-1, "invalid TDataType");
    }
    return row->second;
}

TDataType::TDataType INode::HDFTypeToDataType(hid_t& type)
{
    const TDataType::TDataType dataType = FindDataType(type);
    if (dataType == TDataType::Undefined)
    {
        CheckResult(-1, "invalid HDF type");
    }
    return dataType;
}

size_t INode::GetDataTypeSize(TDataType::TDataType type)
{
    switch (type)
    {
    case TDataType::Char:
    case TDataType::UChar:
        return 1;
    case TDataType::Short:
    case TDataType::UShort:
        return 2;
    case TDataType::Int:
    case TDataType::UInt:
    case TDataType::Float:
    case TDataType::Float32:
        return 4;
    case TDataType::Int64:
    case TDataType::UInt64:
    case TDataType::LongLong:
    case TDataType::ULongLong:
    case TDataType::Double:
    case TDataType::Float64:
        return 8;
    // HDF5 moves sizeof(long) bytes for these: 4 or 8, by platform. A fixed 4 would make callers allocate too little.
    case TDataType::Long:
    case TDataType::ULong:
        return sizeof(long);
    default:
        throw std::runtime_error("unknown datatype!");
    }
}

} // namespace tarnwick::hdf
