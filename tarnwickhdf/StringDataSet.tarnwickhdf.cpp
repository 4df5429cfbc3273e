#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/utils.h>

#include <tarnwick/text.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

const char* const kReadFailed = "error reading string buffer from dataset";
const char* const kNoCharset = "could not detect charset from dataset";

// A damaged file may claim more items than memory can be asked for.
size_t BytesOf(size_t items, size_t itemSize)
{
    CheckResult(itemSize != 0 && items > std::numeric_limits<size_t>::max() / itemSize ? -1 : 0, kReadFailed);
    return items * itemSize;
}

// Whether what HDF5 reads as this type holds pointers to memory that it allocated; also where HDF5 can't tell.
bool MayHaveVariableParts(hid_t type)
{
    const H5T_class_t typeClass = H5Tget_class(type);
    if (typeClass == H5T_STRING)
    {
        return H5Tis_variable_str(type) != 0;
    }
    if (typeClass == H5T_ARRAY)
    {
        return MayHaveVariableParts(ScopedType(H5Tget_super(type)).get());
    }
    const int members = typeClass == H5T_COMPOUND ? H5Tget_nmembers(type) : 0;
    for (int i = 0; i < members; ++i)
    {
        if (MayHaveVariableParts(ScopedType(H5Tget_member_type(type, static_cast<unsigned int>(i))).get()))
        {
            return true;
        }
    }
    return typeClass == H5T_VLEN || typeClass == H5T_NO_CLASS || members < 0;
}

// Whether an item of the type is nothing but the pointer to a text; below zero if HDF5 can't tell.
htri_t IsVariableText(hid_t type)
{
    const H5T_class_t typeClass = H5Tget_class(type);
    const int members = typeClass == H5T_COMPOUND ? H5Tget_nmembers(type) : 0;
    if (typeClass == H5T_NO_CLASS || members < 0)
    {
        return -1;
    }
    if (typeClass != H5T_COMPOUND)
    {
        return H5Tis_variable_str(type);
    }
    const size_t size = H5Tget_size(type);
    if (members != 1 || size != sizeof(char*))
    {
        return size == 0 ? -1 : 0;
    }
    return H5Tis_variable_str(ScopedType(H5Tget_member_type(type, 0)).get());
}

// A text as it is stored.
struct StoredText
{
    const char* bytes;
    size_t size;
    H5T_cset_t charset;
};

// What counts as ASCII may be Latin-1, which isn't UTF-8 as it stands.
bool IsConverted(const StoredText& text)
{
    return text.charset == H5T_CSET_ASCII &&
           std::any_of(text.bytes, text.bytes + text.size, [](char c) { return (c & 0x80) != 0; });
}

void AssignInUtf8(std::string& target, const StoredText& text)
{
    target.assign(text.bytes, text.size);
    if (IsConverted(text))
    {
        target = latin1_to_utf8(target);
    }
}

// Selects the first `count` elements in the order in which they are read, fewer than the space has: whole slices along
// the first dimension, then what is left of the next slice in the same way.
void SelectFirst(const ScopedSpace& space, hsize_t count)
{
    const int rank = std::max(H5Sget_simple_extent_ndims(space.get()), 0);
    hsize_t dimensions[H5S_MAX_RANK] = {0};
    hsize_t start[H5S_MAX_RANK] = {0};
    hsize_t size[H5S_MAX_RANK] = {0};
    H5Sselect_none(space.get());
    if (H5Sget_simple_extent_dims(space.get(), dimensions, nullptr) < 0)
    {
        return;
    }
    std::copy(dimensions, dimensions + rank, size);
    hsize_t inSlice = std::accumulate(dimensions, dimensions + rank, hsize_t{1}, std::multiplies<>());
    for (int i = 0; i < rank && count > 0; ++i)
    {
        inSlice /= dimensions[i];
        size[i] = count / inSlice;
        if (size[i] > 0)
        {
            H5Sselect_hyperslab(space.get(), H5S_SELECT_OR, start, nullptr, size, nullptr);
        }
        start[i] = size[i];
        size[i] = 1;
        count %= inSlice;
    }
}

// Memory for the first `count` items of a data set, and for what HDF5 allocates for them. A surplus of the data set is
// left out, and what it lacks is NUL.
class Items
{
public:
    Items(hid_t dataSet, hid_t memoryType, size_t count, size_t itemSize)
        : m_dataSet(dataSet), m_fileSpace(H5Dget_space(dataSet))
    {
        const size_t typeSize = H5Tget_size(memoryType);
        // What has no size is no type to read with.
        m_memoryType = typeSize > 0 ? memoryType : -1;
        m_bytes.resize(std::max(BytesOf(count, std::max(itemSize, typeSize)), size_t{1}), '\0');
        const hssize_t stored = H5Sget_simple_extent_npoints(m_fileSpace.get());
        m_isWhole = stored >= 0 && static_cast<hsize_t>(stored) <= count;
        // Where HDF5 can't tell, the read has no memory space and fails.
        if (stored >= 0 && !m_isWhole)
        {
            const hsize_t length = count;
            m_memorySpace.reset(H5Screate_simple(1, &length, nullptr));
            SelectFirst(m_fileSpace, count);
        }
    }
    Items(const Items&) = delete;
    Items& operator=(const Items&) = delete;
    ~Items()
    {
        if (MayHaveVariableParts(m_memoryType))
        {
            H5Dvlen_reclaim(m_memoryType, m_isWhole ? m_fileSpace.get() : m_memorySpace.get(), H5P_DEFAULT,
                            m_bytes.data());
        }
    }

    void Read()
    {
        const hid_t inMemory = m_isWhole ? H5S_ALL : m_memorySpace.get();
        const hid_t inFile = m_isWhole ? H5S_ALL : m_fileSpace.get();
        CheckResult(H5Dread(m_dataSet, m_memoryType, inMemory, inFile, H5P_DEFAULT, m_bytes.data()), kReadFailed);
    }

    const char* FixedText(size_t index, size_t itemSize) const { return m_bytes.data() + index * itemSize; }

    const char* VariableText(size_t index) const
    {
        const char* text = nullptr;
        std::memcpy(&text, m_bytes.data() + index * sizeof(text), sizeof(text));
        return text == nullptr ? "" : text;
    }

private:
    hid_t m_dataSet;
    hid_t m_memoryType = -1;
    ScopedSpace m_fileSpace;
    ScopedSpace m_memorySpace;
    std::vector<char> m_bytes;
    bool m_isWhole = false;
};

// Puts texts in the place of as many others, and uses their memory: who reads again and again needs none. Those that need
// more are made first, so that all others stay as they are if there is too little. `fitsAny` tells whether a string has
// memory for the longest text, which saves a look at the text.
template <typename TextAt, typename FitsAny>
void Replace(std::vector<std::string>& strings, const TextAt& textAt, const FitsAny& fitsAny)
{
    std::vector<std::pair<size_t, std::string>> made;
    for (size_t i = 0; i < strings.size(); ++i)
    {
        if (fitsAny(strings[i]))
        {
            continue;
        }
        const StoredText text = textAt(i);
        if (text.size > strings[i].capacity() || IsConverted(text))
        {
            made.emplace_back(i, std::string());
            AssignInUtf8(made.back().second, text);
        }
    }
    auto next = made.begin();
    for (size_t i = 0; i < strings.size(); ++i)
    {
        if (next != made.end() && next->first == i)
        {
            strings[i].swap(next->second);
            ++next;
            continue;
        }
        const StoredText text = textAt(i);
        strings[i].assign(text.bytes, text.size);
    }
}

} // namespace

size_t IArray::CalculateMaxLengthFromStringVector(const std::vector<std::string>& strings)
{
    size_t longest = 0;
    for (const std::string& text : strings)
    {
        longest = std::max(longest, text.size());
    }
    return longest;
}

boost::shared_array<char> IArray::CreateBufferFromStringVector(const std::vector<std::string>& strings,
                                                               size_t maxLength)
{
    const size_t itemSize =
        maxLength != 0 ? maxLength : std::max<size_t>(CalculateMaxLengthFromStringVector(strings), 1);
    boost::shared_array<char> buffer(new char[itemSize * strings.size()]());
    char* item = buffer.get();
    for (const std::string& text : strings)
    {
        std::copy_n(text.data(), std::min(text.size(), itemSize), item);
        item += itemSize;
    }
    return buffer;
}

namespace utils
{

void ReadStringDataSet(std::vector<std::string>& strings, hid_t dataSet, hid_t storedType, hid_t memoryType,
                       size_t count, size_t itemSize)
{
    Items items(dataSet, memoryType, count, itemSize);
    items.Read();
    const H5T_cset_t charset = H5Tget_cset(storedType);
    CheckResult(charset, kNoCharset);
    // HDF5 tells a character set of sequences and arrays of strings too, but their items are no texts.
    const H5T_class_t storedClass = H5Tget_class(storedType);
    CheckResult(storedClass == H5T_VLEN || storedClass == H5T_ARRAY ? -1 : 0, kNoCharset);
    const htri_t isVariable = IsVariableText(memoryType);
    CheckResult(isVariable, kReadFailed);
    const auto textAt = [&](size_t i) -> StoredText
    {
        const char* const text = isVariable > 0 ? items.VariableText(i) : items.FixedText(i, itemSize);
        return {text, isVariable > 0 ? std::strlen(text) : strnlen(text, itemSize), charset};
    };
    const auto fitsAny = [&](const std::string& target)
    {
        return isVariable == 0 && charset != H5T_CSET_ASCII && itemSize <= target.capacity();
    };
    if (strings.size() == count)
    {
        Replace(strings, textAt, fitsAny);
        return;
    }
    std::vector<std::string> read(count);
    for (size_t i = 0; i < count; ++i)
    {
        AssignInUtf8(read[i], textAt(i));
    }
    strings.swap(read);
}

} // namespace utils

} // namespace tarnwick::hdf
