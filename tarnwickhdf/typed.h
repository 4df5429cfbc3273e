#pragma once

/// @file
/// C++ values in and out of HDF5 files: vectors of numbers and texts, tables of a struct, numbers as attributes. Free
/// functions over the exported classes, which take type and size from the value. Include it where you use it.
///
/// Whatever a function here throws begins with the path of the object in its file, as in
/// "/stations/north/readings: no column 'temprature'; there are time, temperature". Behind the path stand the words of
/// this header's own checks, or those that the library's operation has thrown. ReasonOf makes one line of it.

#include <tarnwick/text.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <hdf5.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarnwick::hdf
{

template <size_t Size>
class FixedText;

/// What the functions of this header are made of; not for use.
namespace detail
{

/// The one owner of an HDF5 id. A negative one is never closed.
template <herr_t (*CloseId)(hid_t)>
class OwnedId
{
public:
    explicit OwnedId(hid_t id) noexcept : m_id(id) {}
    OwnedId(OwnedId&& other) noexcept : m_id(std::exchange(other.m_id, -1)) {}
    OwnedId& operator=(OwnedId&& other) noexcept
    {
        std::swap(m_id, other.m_id);
        return *this;
    }
    OwnedId(const OwnedId&) = delete;
    OwnedId& operator=(const OwnedId&) = delete;
    // A static object may outlive HDF5, which has closed its id then.
    ~OwnedId()
    {
        if (m_id >= 0 && H5Iis_valid(m_id) > 0)
        {
            CloseId(m_id);
        }
    }

    hid_t Get() const noexcept { return m_id; }
    hid_t GetOr(hid_t other) const noexcept { return m_id >= 0 ? m_id : other; }

private:
    hid_t m_id;
};

using OwnedType = OwnedId<H5Tclose>;
using OwnedSpace = OwnedId<H5Sclose>;
using OwnedAttr = OwnedId<H5Aclose>;

inline herr_t TakeReason(unsigned int /*number*/, const H5E_error2_t* frame, void* reason)
{
    *static_cast<const char**>(reason) = frame->desc;
    return 1;
}

/// Throws `words` and HDF5's innermost reason if an HDF5 call has failed.
template <typename Result, typename Words>
Result Checked(Result result, const Words& words)
{
    if (result < 0)
    {
        const char* reason = nullptr;
        H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, &TakeReason, &reason);
        throw std::runtime_error(words + (reason == nullptr ? std::string() : std::string(": ") + reason));
    }
    return result;
}

inline std::string PathOf(const INode& node)
{
    std::string path;
    try
    {
        path = node.GetFullName();
    }
    catch (const std::runtime_error&)
    {
        // The node of a closed file has its name and nothing else.
    }
    return path.empty() ? node.GetName() : path;
}

inline std::string PathOf(const IGroup& group, const std::string& name)
{
    if (!name.empty() && name.front() == '/')
    {
        return name;
    }
    const std::string path = PathOf(group);
    return path.empty() || path.back() != '/' ? path + "/" + name : path + name;
}

/// To be called where an exception is handled: throws it anew with the place that `tellPlace` tells before its text.
template <typename TellPlace>
[[noreturn]] void Rethrow(TellPlace tellPlace)
{
    try
    {
        throw;
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        throw std::runtime_error(tellPlace() + ": " + failure.what());
    }
}

template <typename... Place>
[[noreturn]] void RethrowAt(const Place&... place)
{
    Rethrow([&] { return PathOf(place...); });
}

template <typename>
inline constexpr bool kNever = false;

template <typename T>
inline constexpr bool kIsNumber = (std::is_integral_v<T> && sizeof(T) <= 8 && !std::is_same_v<T, bool> &&
                                   !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
                                   !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>) ||
                                  std::is_same_v<T, float> || std::is_same_v<T, double>;

template <typename>
inline constexpr bool kIsVector = false;
template <typename T>
inline constexpr bool kIsVector<std::vector<T>> = true;

/// The bytes of a text of fixed length, 0 for every other type.
template <typename>
inline constexpr size_t kTextSize = 0;
template <size_t Size>
inline constexpr size_t kTextSize<char[Size]> = Size;
template <size_t Size>
inline constexpr size_t kTextSize<FixedText<Size>> = Size;

/// Tells an array of a fixed number of elements from everything else.
template <typename T>
struct FixedArray : std::false_type
{
};
template <typename T, size_t Size>
struct FixedArray<std::array<T, Size>> : std::true_type
{
    using Element = T;
    static constexpr hsize_t kSize = Size;
};
template <typename T, size_t Size>
struct FixedArray<T[Size]> : FixedArray<std::array<T, Size>>
{
};

template <typename T>
constexpr TDataType::TDataType IntegerType()
{
    constexpr bool kIsSigned = std::is_signed_v<T>;
    switch (sizeof(T))
    {
    case 1:
        return kIsSigned ? TDataType::Char : TDataType::UChar;
    case 2:
        return kIsSigned ? TDataType::Short : TDataType::UShort;
    case 4:
        return kIsSigned ? TDataType::Int : TDataType::UInt;
    default:
#ifdef H5_WORDS_BIGENDIAN
        return kIsSigned ? TDataType::LongLong : TDataType::ULongLong;
#else
        return kIsSigned ? TDataType::Int64 : TDataType::UInt64;
#endif
    }
}

inline bool IsNumberClass(H5T_class_t stored)
{
    return stored == H5T_INTEGER || stored == H5T_FLOAT || stored == H5T_ENUM;
}

inline bool IsText(TDataType::TDataType type)
{
    return type == TDataType::String || type == TDataType::VarLenString;
}

inline size_t CountElements(const OwnedSpace& space)
{
    return static_cast<size_t>(Checked(H5Sget_simple_extent_npoints(space.Get()), "could not tell its size"));
}

inline size_t ElementsOf(const INode& node)
{
    return CountElements(OwnedSpace(Checked(H5Dget_space(node.LocationID()), "could not open its data space")));
}

/// As many elements as a read of everything moves: a node that knows of none may have the one of a scalar.
inline size_t ElementsOf(const INode& node, size_t known)
{
    return known != 0 ? known : ElementsOf(node);
}

inline OwnedType TextType(size_t size, H5T_cset_t encoding)
{
    OwnedType type(Checked(H5Tcopy(H5T_C_S1), "could not copy the text type"));
    Checked(H5Tset_size(type.Get(), size), "could not set the size of a text");
    Checked(H5Tset_strpad(type.Get(), H5T_STR_NULLPAD), "could not set the padding of a text");
    Checked(H5Tset_cset(type.Get(), encoding), "could not set the character set of a text");
    return type;
}

/// Copies a text and tells whether a NUL byte is in it. It looks at eight bytes at once, because a search of its own
/// takes longer than the copy of a short text: storing 40,000 texts of 12 bytes took a quarter longer with it.
inline bool CopyAndFindNul(const std::string& text, char* target)
{
    using Word = std::uint64_t;
    constexpr Word kOnes = ~Word{0} / 255; // 1 in each byte
    if (text.size() < sizeof(Word))
    {
        bool isFound = false;
        for (const char c : text)
        {
            *target++ = c;
            isFound |= c == '\0';
        }
        return isFound;
    }
    Word borrows = 0; // Subtracting 1 borrows from the highest bit of a NUL byte, and of bytes that have it set.
    for (size_t i = 0; i < text.size(); i += sizeof(Word))
    {
        const size_t at = std::min(i, text.size() - sizeof(Word));
        Word word = 0;
        std::memcpy(&word, text.data() + at, sizeof(word));
        std::memcpy(target + at, &word, sizeof(word));
        borrows |= (word - kOnes) & ~word;
    }
    return (borrows & (kOnes << 7U)) != 0;
}

/// Texts as strings of one fixed length. A reader takes each to its first NUL, so one with a NUL inside would come back
/// shorter: it is refused.
struct TextBuffer
{
    size_t itemSize;
    boost::shared_array<char> items;

    explicit TextBuffer(const std::vector<std::string>& texts)
        : itemSize(std::max<size_t>(IArray::CalculateMaxLengthFromStringVector(texts), 1)),
          items(new char[itemSize * texts.size()])
    {
        // Zeroed by runs: a large buffer that is zeroed at once has left the cache when its texts come.
        constexpr size_t textsOfRun = 64;
        for (size_t i = 0; i < texts.size(); ++i)
        {
            char* const item = items.get() + i * itemSize;
            if (i % textsOfRun == 0)
            {
                std::memset(item, 0, itemSize * std::min(textsOfRun, texts.size() - i));
            }
            if (CopyAndFindNul(texts[i], item))
            {
                throw std::runtime_error("text " + std::to_string(i) + " has a NUL byte in it");
            }
        }
    }
};

inline size_t CountRows(size_t values, size_t columns)
{
    if (columns == 0 || values % columns != 0)
    {
        throw std::runtime_error(std::to_string(values) + " values are no whole rows of " + std::to_string(columns));
    }
    return values / columns;
}

/// A number of rows as extensible arrays take it.
inline int RowNumber(size_t rows)
{
    if (rows > static_cast<size_t>(std::numeric_limits<int>::max()))
    {
        throw std::runtime_error("row " + std::to_string(rows) + " is out of reach");
    }
    return static_cast<int>(rows);
}

/// Whether a write in place stores exactly these elements.
inline bool TakesInPlace(const IArray& array, TDataType::TDataType type, size_t length, size_t components)
{
    if (array.GetType() != type || array.GetLength() != length || array.GetComponents() != components)
    {
        return false;
    }
    return type != TDataType::String ||
           (H5Tis_variable_str(array.GetTypeID()) == 0 && H5Tget_cset(array.GetTypeID()) == array.GetEncoding() &&
            ElementsOf(array) == length);
}

/// Stores an array in place where that keeps its shape, else anew with the group's compression.
inline boost::shared_ptr<IArray> Store(IGroup& group, const std::string& name, const void* values,
                                       TDataType::TDataType type, size_t length, size_t components)
{
    // The library takes writable memory and only reads it.
    void* buffer = const_cast<void*>(values);
    if (IArray::Exists(group.LocationID(), name))
    {
        boost::shared_ptr<IArray> stored = group.GetArray(name);
        if (TakesInPlace(*stored, type, length, components))
        {
            stored->SetFromBuffer(buffer, type, length, components);
            return stored;
        }
        group.DelArray(name);
    }
    // HDF5 has no filters for what has no element.
    const int compression = length * components == 0 ? 0 : group.GetDefaultCompression();
    return IArray::CreateFromBuffer(group.GetFile(), group.LocationID(), name, buffer, type, length, components,
                                    compression);
}

inline boost::shared_ptr<IArray> OpenArray(const IGroup& group, const std::string& name)
try
{
    return group.GetArray(name);
}
catch (const std::exception&)
{
    RethrowAt(group, name);
}

inline boost::shared_ptr<ITable> OpenTable(const IGroup& group, const std::string& name)
try
{
    return group.GetTable(name);
}
catch (const std::exception&)
{
    RethrowAt(group, name);
}

inline std::string MemberName(hid_t compound, unsigned int member)
{
    const std::unique_ptr<char, herr_t (*)(void*)> name(H5Tget_member_name(compound, member), &H5free_memory);
    return name ? name.get() : "";
}

inline unsigned int MemberCount(hid_t compound)
{
    return static_cast<unsigned int>(std::max(H5Tget_nmembers(compound), 0));
}

/// The member of `stored` with that name.
inline OwnedType FindColumn(hid_t stored, const std::string& name, const std::string& outer)
{
    std::string known;
    for (unsigned int i = 0; i < MemberCount(stored); ++i)
    {
        const std::string column = MemberName(stored, i);
        if (column == name)
        {
            return OwnedType(Checked(H5Tget_member_type(stored, i), "could not open a column"));
        }
        known += i == 0 ? "; there are " : ", ";
        known += column;
    }
    throw std::runtime_error("no column '" + outer + name + "'" + known);
}

[[noreturn]] inline void ThrowUnfit(const std::string& column, const std::string& why)
{
    throw std::runtime_error("column '" + column + "' " + why);
}

inline void CheckText(hid_t wanted, hid_t stored, const std::string& column)
{
    if (H5Tget_class(stored) != H5T_STRING)
    {
        ThrowUnfit(column, "holds no text");
    }
    if (H5Tis_variable_str(stored) != 0)
    {
        ThrowUnfit(column, "holds texts of variable length, which ITable::FeedStringVector reads");
    }
    if (H5Tget_size(stored) > H5Tget_size(wanted))
    {
        ThrowUnfit(column, "holds texts of " + std::to_string(H5Tget_size(stored)) + " bytes, more than the row's " +
                               std::to_string(H5Tget_size(wanted)));
    }
}

OwnedType MemoryColumn(hid_t wanted, hid_t stored, const std::string& column);

inline OwnedType MemoryCompound(hid_t wanted, hid_t stored, const std::string& outer)
{
    OwnedType memory(Checked(H5Tcreate(H5T_COMPOUND, H5Tget_size(wanted)), "could not make a row type"));
    for (unsigned int i = 0; i < MemberCount(wanted); ++i)
    {
        const std::string name = MemberName(wanted, i);
        const OwnedType member(H5Tget_member_type(wanted, i));
        const OwnedType column = MemoryColumn(member.Get(), FindColumn(stored, name, outer).Get(), outer + name);
        Checked(H5Tinsert(memory.Get(), name.c_str(), H5Tget_member_offset(wanted, i), column.Get()),
                "could not make a row type");
    }
    return memory;
}

inline OwnedType MemoryArray(hid_t wanted, hid_t stored, const std::string& column)
{
    hsize_t size = 0;
    hsize_t storedSize = 0;
    H5Tget_array_dims2(wanted, &size);
    const bool isFlat = H5Tget_class(stored) == H5T_ARRAY && H5Tget_array_ndims(stored) == 1;
    if (!isFlat || H5Tget_array_dims2(stored, &storedSize) < 0 || storedSize != size)
    {
        ThrowUnfit(column, "holds no arrays of " + std::to_string(size) + " elements");
    }
    const OwnedType wantedElement(H5Tget_super(wanted));
    const OwnedType storedElement(H5Tget_super(stored));
    const OwnedType element = MemoryColumn(wantedElement.Get(), storedElement.Get(), column);
    return OwnedType(Checked(H5Tarray_create2(element.Get(), 1, &size), "could not make an array type"));
}

/// The type to read a column with: as the row lays it out, in the character set that the file has it in, because HDF5
/// doesn't convert between character sets.
inline OwnedType MemoryColumn(hid_t wanted, hid_t stored, const std::string& column)
{
    const H5T_class_t storedClass = H5Tget_class(stored);
    switch (H5Tget_class(wanted))
    {
    case H5T_COMPOUND:
        if (storedClass != H5T_COMPOUND)
        {
            ThrowUnfit(column, "holds no rows");
        }
        return MemoryCompound(wanted, stored, column + ".");
    case H5T_ARRAY:
        return MemoryArray(wanted, stored, column);
    case H5T_STRING:
        CheckText(wanted, stored, column);
        return TextType(H5Tget_size(wanted), H5Tget_cset(stored));
    default:
        if (!IsNumberClass(storedClass))
        {
            ThrowUnfit(column, "holds no numbers");
        }
        return OwnedType(H5Tcopy(wanted));
    }
}

} // namespace detail

/// The element type of a C++ type: what an array of such values is stored as. Integers have it by width and sign, so
/// that `long` and `std::int64_t` are the same. A type without one doesn't compile.
template <typename T>
constexpr TDataType::TDataType ElementTypeOf()
{
    static_assert(!std::is_same_v<T, bool>, "tarnwickhdf: bool has no element type; store std::uint8_t, or a bool as "
                                            "an attribute");
    static_assert(!std::is_same_v<T, char>, "tarnwickhdf: char has no element type; store std::int8_t or std::uint8_t "
                                            "for numbers, std::string for texts");
    static_assert(std::is_same_v<T, bool> || std::is_same_v<T, char> || detail::kIsNumber<T>,
                  "tarnwickhdf: this type has no element type; those that have one are the integers of 8 to 64 bits, "
                  "float and double, and std::string where texts are stored");
    if constexpr (std::is_same_v<T, float>)
    {
        return TDataType::Float;
    }
    else if constexpr (std::is_same_v<T, double>)
    {
        return TDataType::Double;
    }
    else
    {
        return detail::IntegerType<T>();
    }
}

/// Switches HDF5's own printing of failures off for the calling thread. IFile::Open does so when it has succeeded for
/// the first time: call this before it, so that nothing is printed about a first file that is missing.
inline void KeepHdf5Quiet()
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

/// What a failure comes down to, in one line for a user's screen: the operation's words and the innermost reason of
/// HDF5's traceback, if there is one.
inline std::string ReasonOf(const std::exception& failure)
{
    const std::string text = failure.what();
    const size_t traceback = std::min(text.find(":\n#0: in func "), text.size());
    std::string line = text.substr(0, traceback);
    const size_t frame = text.rfind("\n#");
    const size_t reason = text.find("(): ", std::min(frame, text.size()));
    if (traceback != text.size() && reason != std::string::npos)
    {
        line += text.substr(reason + 2, text.find("\n  major:", reason) - reason - 2);
    }
    else if (line.size() >= 2 && line.compare(line.size() - 2, 2, ":\n") == 0)
    {
        line.resize(line.size() - 2);
    }
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

/// Stores a one-dimensional array of numbers under `name`. A data set of the same type and size is written in place;
/// any other is removed with its attributes, and a new one takes its place with the group's default compression.
/// @throws std::runtime_error with the path, and what IArray::CreateFromBuffer, Open and SetFromBuffer throw; so for a
///         table of that name, which stays.
template <typename T>
boost::shared_ptr<IArray> StoreArray(IGroup& group, const std::string& name, const std::vector<T>& values)
try
{
    constexpr TDataType::TDataType kType = ElementTypeOf<T>();
    return detail::Store(group, name, values.data(), kType, values.size(), 1);
}
catch (const std::exception&)
{
    detail::RethrowAt(group, name);
}

/// Stores a two-dimensional array of numbers, row by row, in rows of `columns` values; else as the form without. With
/// `columns` 1 the data set has one dimension.
/// @throws std::runtime_error path + ": " + size + " values are no whole rows of " + columns; and as the form without.
template <typename T>
boost::shared_ptr<IArray> StoreArray(IGroup& group, const std::string& name, const std::vector<T>& values,
                                     size_t columns)
try
{
    constexpr TDataType::TDataType kType = ElementTypeOf<T>();
    const size_t rows = detail::CountRows(values.size(), columns);
    return detail::Store(group, name, values.data(), kType, rows, columns);
}
catch (const std::exception&)
{
    detail::RethrowAt(group, name);
}

/// Stores texts in UTF-8 as strings of one fixed length, which is that of the longest, at least 1; else as for numbers.
/// @throws std::runtime_error path + ": text " + index + " has a NUL byte in it"; and as for numbers.
inline boost::shared_ptr<IArray> StoreArray(IGroup& group, const std::string& name,
                                            const std::vector<std::string>& texts)
try
{
    const detail::TextBuffer buffer(texts);
    return detail::Store(group, name, buffer.items.get(), TDataType::String, texts.size(), buffer.itemSize);
}
catch (const std::exception&)
{
    detail::RethrowAt(group, name);
}

/// Reads all values of an array into `values`, which gets their number: row by row if there are two dimensions, one
/// value of a scalar, none of an empty array. HDF5 converts between number types; what doesn't fit becomes the nearest
/// number that does. `T` std::string reads texts of fixed and of variable length, see utils::ReadStringDataSet.
/// @throws std::runtime_error path + ": holds texts, which are read as std::string", path + ": holds no texts"; and
///         what IArray::GetToBuffer and utils::ReadStringDataSet throw.
template <typename T>
void ReadArray(const IArray& array, std::vector<T>& values)
try
{
    if constexpr (std::is_same_v<T, std::string>)
    {
        if (!detail::IsText(array.GetType()))
        {
            throw std::runtime_error("holds no texts");
        }
        const hid_t type = array.GetTypeID();
        const size_t texts = detail::ElementsOf(array);
        utils::ReadStringDataSet(values, array.LocationID(), type, type, texts, H5Tget_size(type));
    }
    else
    {
        constexpr TDataType::TDataType kType = ElementTypeOf<T>();
        if (detail::IsText(array.GetType()))
        {
            throw std::runtime_error("holds texts, which are read as std::string");
        }
        values.resize(detail::ElementsOf(array, array.GetSize()));
        if (!values.empty())
        {
            array.GetToBuffer(values.data(), kType);
        }
    }
}
catch (const std::exception&)
{
    detail::RethrowAt(array);
}

/// Reads all values of an array into a new vector. @throws as the form with a vector.
template <typename T>
std::vector<T> ReadArray(const IArray& array)
{
    std::vector<T> values;
    ReadArray(array, values);
    return values;
}

/// Opens an array and reads all its values. @throws as ReadArray and IArray::Open.
template <typename T>
std::vector<T> ReadArray(const IGroup& group, const std::string& name)
{
    return ReadArray<T>(*detail::OpenArray(group, name));
}

/// Reads the one value of a scalar or of an array of one element.
/// @throws std::runtime_error path + ": holds " + count + " values, not one"; and as ReadArray.
template <typename T>
T ReadValue(const IArray& array)
{
    const std::vector<T> values = ReadArray<T>(array);
    if (values.size() != 1)
    {
        throw std::runtime_error(detail::PathOf(array) + ": holds " + std::to_string(values.size()) +
                                 " values, not one");
    }
    return values.front();
}

/// Makes an extensible array of no rows and `columns` columns in chunks of `chunkRows` rows. `compression` below 0
/// stands for the group's default.
/// @throws std::runtime_error path + ": could not be created, because its name is taken, a group above it is missing or
///         a size is 0"; and what IGroup::CreateExtensibleArray2D throws.
template <typename T>
boost::shared_ptr<IExtensibleArray2D> MakeExtensibleArray2D(IGroup& group, const std::string& name,
                                                            unsigned int columns, unsigned int chunkRows,
                                                            int compression = -1)
try
{
    boost::shared_ptr<IExtensibleArray2D> array =
        group.CreateExtensibleArray2D(name, ElementTypeOf<T>(), 0, columns, chunkRows, columns, compression);
    if (!array->IsValid())
    {
        throw std::runtime_error("could not be created, because its name is taken, a group above it is missing or a "
                                 "size is 0");
    }
    return array;
}
catch (const std::exception&)
{
    detail::RethrowAt(group, name);
}

/// Appends whole rows to an extensible array, one behind the other in `values`. HDF5 converts between number types.
/// @throws std::runtime_error path + ": " + size + " values are no whole rows of " + columns, path + ": holds texts",
///         before anything is written; and what IExtensibleArray2D::AppendRowsFromBuffer throws.
template <typename T>
void AppendRows(IExtensibleArray2D& array, const std::vector<T>& values)
try
{
    constexpr TDataType::TDataType kType = ElementTypeOf<T>();
    const size_t rows = detail::CountRows(values.size(), array.GetNumberOfColumns());
    if (detail::IsText(array.GetType()))
    {
        throw std::runtime_error("holds texts");
    }
    array.AppendRowsFromBuffer(detail::RowNumber(rows), values.data(), kType);
}
catch (const std::exception&)
{
    detail::RethrowAt(array);
}

/// Reads the `count` rows from `first` on into `values`, one behind the other.
/// @throws std::runtime_error path + ": has no rows " + first + " to " + end + ", it has " + rows, path + ": holds texts"; and what
///         IExtensibleArray2D::ReadRowsToBuffer throws.
template <typename T>
void ReadRows(IExtensibleArray2D& array, size_t first, size_t count, std::vector<T>& values)
try
{
    constexpr TDataType::TDataType kType = ElementTypeOf<T>();
    const size_t rows = array.GetNumberOfRows();
    if (first > rows || count > rows - first)
    {
        throw std::runtime_error("has no rows " + std::to_string(first) + " to " + std::to_string(first + count) +
                                 ", it has " + std::to_string(rows));
    }
    if (detail::IsText(array.GetType()))
    {
        throw std::runtime_error("holds texts");
    }
    values.resize(count * array.GetNumberOfColumns());
    array.ReadRowsToBuffer(detail::RowNumber(first), detail::RowNumber(count), values.data(), kType);
}
catch (const std::exception&)
{
    detail::RethrowAt(array);
}

/// Reads the `count` rows from `first` on into a new vector. @throws as the form with a vector.
template <typename T>
std::vector<T> ReadRows(IExtensibleArray2D& array, size_t first, size_t count)
{
    std::vector<T> values;
    ReadRows(array, first, count, values);
    return values;
}

/// Reads all rows. @throws as the form with a vector.
template <typename T>
std::vector<T> ReadRows(IExtensibleArray2D& array)
{
    return ReadRows<T>(array, 0, array.GetNumberOfRows());
}

/// A text of at most `Size` bytes as a member of a row. What is assigned is cut at the border of a UTF-8 character, and
/// a shorter text is filled up with NUL bytes, so that no byte of an older text is left.
template <size_t Size>
class FixedText
{
public:
    /// The empty text.
    FixedText() = default;
    /// Takes as many whole characters of `text`, anything that converts to std::string_view, as fit.
    template <typename Text, typename = std::enable_if_t<std::is_convertible_v<const Text&, std::string_view>>>
    FixedText(const Text& text)
    {
        const std::string_view whole = text;
        size_t size = std::min(whole.size(), Size);
        while (size > 0 && size < whole.size() && (static_cast<unsigned char>(whole[size]) & 0xC0U) == 0x80U)
        {
            --size;
        }
        whole.copy(m_bytes, size);
    }

    /// The text up to its first NUL byte.
    std::string Text() const
    {
        return {m_bytes, static_cast<size_t>(std::find(m_bytes, m_bytes + Size, '\0') - m_bytes)};
    }

    /// Whether both texts are the same.
    friend bool operator==(const FixedText& one, const FixedText& other)
    {
        return std::memcmp(one.m_bytes, other.m_bytes, Size) == 0;
    }
    /// Whether the texts differ.
    friend bool operator!=(const FixedText& one, const FixedText& other) { return !(one == other); }

private:
    char m_bytes[Size] = {};
};

template <typename Row>
class RowType;

namespace detail
{

template <typename Member>
OwnedType ColumnType()
{
    if constexpr (kIsNumber<Member>)
    {
        return OwnedType(H5Tcopy(INode::DataTypeToHDFType(ElementTypeOf<Member>())));
    }
    else if constexpr (kTextSize<Member> != 0)
    {
        return TextType(kTextSize<Member>, H5T_CSET_UTF8);
    }
    else if constexpr (FixedArray<Member>::value)
    {
        using Element = typename FixedArray<Member>::Element;
        static_assert(!FixedArray<Element>::value, "tarnwickhdf: a column's arrays have one dimension");
        const OwnedType element = ColumnType<Element>();
        return OwnedType(H5Tarray_create2(element.Get(), 1, &FixedArray<Member>::kSize));
    }
    else
    {
        static_assert(
            kNever<Member>,
            "tarnwickhdf: this member can't be a column; those that can are numbers (std::uint8_t in place of "
            "bool), char[N] and FixedText<N> (in place of std::string), std::array of these, and a struct "
            "whose own RowType stands behind the pointer to member");
        return OwnedType(-1);
    }
}

} // namespace detail

/// A column of a RowType: a name and a pointer to the member. Written as `{"name", &Row::member}`.
template <typename Row>
class Column
{
public:
    /// A member that is a number, `char[N]`, FixedText, or an array of these of one dimension.
    template <typename Member>
    Column(const char* name, Member Row::*member)
        : m_name(name), m_offset(OffsetOf(member)), m_type(detail::ColumnType<Member>())
    {
    }

    /// A member that is a struct with a row type of its own.
    template <typename Member>
    Column(const char* name, Member Row::*member, const RowType<Member>& type)
        : m_name(name), m_offset(OffsetOf(member)), m_type(H5Tcopy(type.Id()))
    {
    }

private:
    template <typename Member>
    static size_t OffsetOf(Member Row::*member)
    {
        const Row row{};
        return static_cast<size_t>(reinterpret_cast<const char*>(&(row.*member)) - reinterpret_cast<const char*>(&row));
    }

    const char* m_name;
    size_t m_offset;
    detail::OwnedType m_type;

    friend class RowType<Row>;
};

/// How a struct of yours is a row of a table:
///
///     const RowType<Reading> kReading = {{"time", &Reading::time}, {"place", &Reading::place}};
///
/// It owns an HDF5 compound type, so it can be moved and not copied. The file keeps the layout of the struct, paddings
/// and members without a column included. Members ordered from large to small leave no paddings; PyTables can't read
/// rows inside of rows with them.
template <typename Row>
class RowType
{
public:
    /// Makes the compound type.
    /// @throws std::runtime_error "could not add column '" + name + "': " + reason, so for a name that is there twice.
    RowType(std::initializer_list<Column<Row>> columns)
        : m_type(detail::Checked(H5Tcreate(H5T_COMPOUND, sizeof(Row)), "could not make a row type"))
    {
        static_assert(std::is_trivially_copyable_v<Row>,
                      "tarnwickhdf: the rows of a table are copied byte for byte; use FixedText<N> for std::string and "
                      "std::array for std::vector");
        for (const Column<Row>& column : columns)
        {
            detail::Checked(H5Tinsert(m_type.Get(), column.m_name, column.m_offset, column.m_type.Get()),
                            std::string("could not add column '") + column.m_name + "'");
        }
    }

    /// The HDF5 compound type, for the plain operations of ITable; it stays this object's.
    hid_t Id() const { return m_type.Get(); }

    /// What ReadTable reads the rows of `table` with: a type like this one with the character sets of the table's texts;
    /// none, an id below 0, if the table has this very type. @throws as ReadTable for a column that doesn't fit.
    detail::OwnedType AdaptedTo(const ITable& table) const
    {
        const hid_t stored = table.GetCompoundTypeID();
        // Comparing costs as much as reading a few rows. HDF5 gives an id once, so that one comparison a table will do.
        if (stored >= 0 && m_lastEqual->load(std::memory_order_relaxed) == stored)
        {
            return detail::OwnedType(-1);
        }
        if (H5Tequal(m_type.Get(), stored) > 0)
        {
            m_lastEqual->store(stored, std::memory_order_relaxed);
            return detail::OwnedType(-1);
        }
        return detail::MemoryCompound(m_type.Get(), stored, "");
    }

private:
    detail::OwnedType m_type;
    std::unique_ptr<std::atomic<hid_t>> m_lastEqual = std::make_unique<std::atomic<hid_t>>(-1);
};

/// Stores rows as a table under `name`. A table of the same row type and number of rows is written in place and keeps
/// chunks, filters and attributes; any other is removed with its attributes, and a new one takes its place.
/// `compression` below 0 stands for the group's default. `chunkRows` is the most rows of a chunk, 0 for one chunk.
/// @throws std::runtime_error with the path, and what ITable::CreateFromBuffer, Open and SetFromBuffer throw; so for an
///         array of that name, which stays.
template <typename Row>
boost::shared_ptr<ITable> StoreTable(IGroup& group, const std::string& name, const RowType<Row>& type,
                                     const std::vector<Row>& rows, int compression = -1, size_t chunkRows = 0)
try
{
    // The library takes writable memory and only reads it.
    void* buffer = const_cast<Row*>(rows.data());
    if (ITable::Exists(group.LocationID(), name))
    {
        boost::shared_ptr<ITable> stored = group.GetTable(name);
        if (stored->GetNumberOfRows() == rows.size() && H5Tequal(type.Id(), stored->GetCompoundTypeID()) > 0)
        {
            stored->SetFromBuffer(buffer, rows.size(), 0, 0);
            return stored;
        }
        group.DelArray(name);
    }
    int level = compression < 0 ? group.GetDefaultCompression() : compression;
    level = rows.empty() ? 0 : level; // HDF5 has no filters for what has no element
    return ITable::CreateFromBuffer(group.GetFile(), group.LocationID(), name, buffer, rows.size(), type.Id(), level, 0,
                                    std::min(chunkRows, rows.size()));
}
catch (const std::exception&)
{
    detail::RethrowAt(group, name);
}

/// Reads all rows of a table into `rows`, which gets their number. The table may have its columns in another order, of
/// other number types, and more of them; before anything is read, each column of the row type is looked up in it.
/// Text comes in the character set that it is stored in.
/// @throws std::runtime_error path + ": no column '" + name + "'; there are " + names, path + ": column '" + name + "'
///         holds " + what doesn't fit; and what ITable::GetToBuffer throws.
template <typename Row>
void ReadTable(const ITable& table, const RowType<Row>& type, std::vector<Row>& rows)
try
{
    const detail::OwnedType adapted = type.AdaptedTo(table);
    rows.resize(detail::ElementsOf(table, table.GetNumberOfRows()));
    if (!rows.empty())
    {
        table.GetToBuffer(rows.data(), adapted.GetOr(type.Id()));
    }
}
catch (const std::exception&)
{
    detail::RethrowAt(table);
}

/// Reads all rows into a new vector. @throws as the form with a vector.
template <typename Row>
std::vector<Row> ReadTable(const ITable& table, const RowType<Row>& type)
{
    std::vector<Row> rows;
    ReadTable(table, type, rows);
    return rows;
}

/// Opens a table and reads all its rows. @throws as ReadTable and ITable::Open.
template <typename Row>
std::vector<Row> ReadTable(const IGroup& group, const std::string& name, const RowType<Row>& type)
{
    return ReadTable(*detail::OpenTable(group, name), type);
}

/// Reads scattered rows, in the order of `selection`; none for an empty one.
/// @throws as the form that reads all rows, and what ITable::GetFromSelection throws.
template <typename Row>
std::vector<Row> ReadTable(const ITable& table, const RowType<Row>& type, const std::vector<hsize_t>& selection)
try
{
    const detail::OwnedType adapted = type.AdaptedTo(table);
    std::vector<Row> rows(selection.size());
    if (!rows.empty())
    {
        table.GetFromSelection(rows.data(), adapted.GetOr(type.Id()), selection);
    }
    return rows;
}
catch (const std::exception&)
{
    detail::RethrowAt(table);
}

/// Reads the `count` rows start, start + stride, start + 2 * stride ...; none for a count of 0.
/// @throws as the form that reads all rows, and what ITable::GetFromHyperslab throws.
template <typename Row>
std::vector<Row> ReadTable(const ITable& table, const RowType<Row>& type, size_t start, size_t stride, size_t count)
try
{
    const detail::OwnedType adapted = type.AdaptedTo(table);
    std::vector<Row> rows(count);
    if (!rows.empty())
    {
        table.GetFromHyperslab(rows.data(), start, stride, count, adapted.GetOr(type.Id()));
    }
    return rows;
}
catch (const std::exception&)
{
    detail::RethrowAt(table);
}

namespace detail
{

/// An attribute open for reading.
struct StoredAttr
{
    OwnedAttr id;
    OwnedType type;
    size_t elements;

    H5T_class_t Class() const { return H5Tget_class(type.Get()); }

    template <typename Value>
    std::vector<Value> Read(hid_t memoryType, size_t valuesOfAnElement = 1) const
    {
        std::vector<Value> values(elements * valuesOfAnElement);
        if (!values.empty())
        {
            Checked(H5Aread(id.Get(), memoryType, values.data()), "could not read it");
        }
        return values;
    }
};

inline StoredAttr OpenAttr(const INode& node, const std::string& name)
{
    OwnedAttr id(Checked(H5Aopen(node.LocationID(), name.c_str(), H5P_DEFAULT), "could not open it"));
    OwnedType type(Checked(H5Aget_type(id.Get()), "could not open its type"));
    const size_t elements = CountElements(OwnedSpace(Checked(H5Aget_space(id.Get()), "could not open its data space")));
    return {std::move(id), std::move(type), elements};
}

template <typename Number>
std::vector<Number> ReadNumbers(const StoredAttr& attr)
{
    if (!IsNumberClass(attr.Class()))
    {
        throw std::runtime_error("holds no numbers");
    }
    return attr.Read<Number>(INode::DataTypeToHDFType(ElementTypeOf<Number>()));
}

/// Booleans are an enumeration for h5py and a bit field for PyTables; other programs take a small integer.
inline std::vector<bool> ReadBooleans(const StoredAttr& attr)
{
    const H5T_class_t stored = attr.Class();
    if (stored != H5T_ENUM && stored != H5T_BITFIELD && stored != H5T_INTEGER)
    {
        throw std::runtime_error("holds no booleans");
    }
    std::vector<bool> booleans;
    for (const std::int64_t value : attr.Read<std::int64_t>(stored == H5T_BITFIELD ? H5T_NATIVE_B64 : H5T_NATIVE_INT64))
    {
        booleans.push_back(value != 0);
    }
    return booleans;
}

inline std::string TextOf(const char* text, size_t size, H5T_cset_t charset)
{
    const std::string stored(text, strnlen(text, size));
    return charset == H5T_CSET_ASCII ? latin1_to_utf8(stored) : stored;
}

inline std::vector<std::string> ReadVariableTexts(const StoredAttr& attr)
{
    using OwnedText = std::unique_ptr<char, herr_t (*)(void*)>;
    std::vector<OwnedText> owned;
    owned.reserve(attr.elements);
    for (char* const text : attr.Read<char*>(attr.type.Get()))
    {
        owned.emplace_back(text, &H5free_memory);
    }
    std::vector<std::string> texts;
    for (const OwnedText& text : owned)
    {
        const char* const stored = text ? text.get() : "";
        texts.push_back(TextOf(stored, std::strlen(stored), H5Tget_cset(attr.type.Get())));
    }
    return texts;
}

inline std::vector<std::string> ReadTexts(const StoredAttr& attr)
{
    if (attr.Class() != H5T_STRING)
    {
        throw std::runtime_error("holds no texts");
    }
    if (H5Tis_variable_str(attr.type.Get()) > 0)
    {
        return ReadVariableTexts(attr);
    }
    const size_t size = H5Tget_size(attr.type.Get());
    const std::vector<char> bytes = attr.Read<char>(attr.type.Get(), size);
    std::vector<std::string> texts;
    for (size_t i = 0; i < bytes.size(); i += size)
    {
        texts.push_back(TextOf(&bytes[i], size, H5Tget_cset(attr.type.Get())));
    }
    return texts;
}

/// All values of an attribute.
template <typename Value>
std::vector<Value> ReadAttrValues(const INode& node, const std::string& name)
{
    const StoredAttr attr = OpenAttr(node, name);
    if constexpr (std::is_same_v<Value, bool>)
    {
        return ReadBooleans(attr);
    }
    else if constexpr (std::is_same_v<Value, std::string>)
    {
        return ReadTexts(attr);
    }
    else
    {
        return ReadNumbers<Value>(attr);
    }
}

inline void WriteAttr(INode& node, const std::string& name, hid_t type, const OwnedSpace& space, const void* values)
{
    const hid_t location = node.LocationID();
    if (Checked(H5Aexists(location, name.c_str()), "could not look for it") > 0)
    {
        Checked(H5Adelete(location, name.c_str()), "could not delete the old one");
    }
    const OwnedAttr attr(H5Acreate2(location, name.c_str(), type, space.Get(), H5P_DEFAULT, H5P_DEFAULT));
    Checked(attr.Get(), "could not create it");
    if (CountElements(space) != 0)
    {
        Checked(H5Awrite(attr.Get(), type, values), "could not write it");
    }
}

/// The enumeration that h5py takes for a boolean.
inline OwnedType BooleanType()
{
    OwnedType type(Checked(H5Tenum_create(H5T_STD_I8LE), "could not make the type of booleans"));
    for (const std::int8_t value : {std::int8_t{0}, std::int8_t{1}})
    {
        Checked(H5Tenum_insert(type.Get(), value == 0 ? "FALSE" : "TRUE", &value),
                "could not make the type of booleans");
    }
    return type;
}

template <typename Value>
void WriteAttrValues(INode& node, const std::string& name, const OwnedSpace& space, const std::vector<Value>& values)
{
    if constexpr (std::is_same_v<Value, std::string>)
    {
        const TextBuffer buffer(values);
        WriteAttr(node, name, TextType(buffer.itemSize, node.GetEncoding()).Get(), space, buffer.items.get());
    }
    else if constexpr (std::is_same_v<Value, bool>)
    {
        const std::vector<std::int8_t> bytes(values.begin(), values.end());
        WriteAttr(node, name, BooleanType().Get(), space, bytes.data());
    }
    else
    {
        WriteAttr(node, name, INode::DataTypeToHDFType(ElementTypeOf<Value>()), space, values.data());
    }
}

/// To be called where an exception is handled, as RethrowAt.
[[noreturn]] inline void RethrowAtAttr(const INode& node, const std::string& name)
{
    Rethrow([&] { return PathOf(node) + ": attribute '" + name + "'"; });
}

} // namespace detail

/// Stores an attribute: a text as INode::SetAttr does; a number or a boolean as a scalar; a vector of numbers, booleans
/// or texts as one dimension. Booleans are stored as h5py does, as an enumeration of FALSE and TRUE. An attribute of
/// that name, of whatever type, is deleted first; if a later step fails, the old one is gone.
/// @throws std::runtime_error path + ": attribute '" + name + "': " + reason, so for more than 64 KiB.
template <typename Value>
void StoreAttr(INode& node, const std::string& name, const Value& value)
try
{
    if constexpr (std::is_convertible_v<const Value&, std::string>)
    {
        node.SetAttr(name, value);
    }
    else if constexpr (detail::kIsVector<Value>)
    {
        const hsize_t size = value.size();
        detail::WriteAttrValues(node, name, detail::OwnedSpace(H5Screate_simple(1, &size, nullptr)), value);
    }
    else
    {
        detail::WriteAttrValues<Value>(node, name, detail::OwnedSpace(H5Screate(H5S_SCALAR)), {value});
    }
}
catch (const std::exception&)
{
    detail::RethrowAtAttr(node, name);
}

/// Reads an attribute of any writer as a number, a boolean, a text (as INode::GetAttr does) or a vector of these. A
/// vector takes any number of values. HDF5 converts between number types; a boolean is read from h5py's enumeration,
/// from PyTables' bit field and from an integer.
/// @throws std::runtime_error path + ": attribute '" + name + "': " + reason: "holds no numbers", "holds no booleans",
///         "holds no texts", "holds " + count + " values, not one", "could not open it: can't locate attribute: ...".
template <typename Value>
Value ReadAttr(const INode& node, const std::string& name)
try
{
    if constexpr (std::is_same_v<Value, std::string>)
    {
        return node.GetAttr(name);
    }
    else if constexpr (detail::kIsVector<Value>)
    {
        return detail::ReadAttrValues<typename Value::value_type>(node, name);
    }
    else
    {
        const std::vector<Value> values = detail::ReadAttrValues<Value>(node, name);
        if (values.size() != 1)
        {
            throw std::runtime_error("holds " + std::to_string(values.size()) + " values, not one");
        }
        return values.front();
    }
}
catch (const std::exception&)
{
    detail::RethrowAtAttr(node, name);
}

} // namespace tarnwick::hdf
