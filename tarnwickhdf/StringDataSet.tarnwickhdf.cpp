#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/utils.h>

#include <tarnwick/text.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace tarnwick::hdf
{

namespace
{

const char* const kReadFailed = "error reading string buffer from dataset";
const char* const kNoCharset = "could not detect charset from dataset";

size_t CountItems(const ScopedSpace& space)
{
    const hssize_t items = H5Sget_simple_extent_npoints(space.get());
    return items > 0 ? static_cast<size_t>(items) : 0;
}

// A damaged file may claim more items than memory can be asked for.
size_t BytesOf(size_t items, size_t itemSize)
{
    CheckResult(itemSize != 0 && items > std::numeric_limits<size_t>::max() / itemSize ? -1 : 0, kReadFailed);
    return items * itemSize;
}

void AssignText(std::string& target, const char* text, size_t size, H5T_cset_t charset)
{
    target.assign(text, size);
    const bool converts =
        charset == H5T_CSET_ASCII && std::any_of(target.begin(), target.end(), [](char c) { return (c & 0x80) != 0; });
    if (converts)
    {
        target = latin1_to_utf8(target);
    }
}

// The pointers that HDF5 stores for variable-length items, and the memory behind them.
class VariableItems
{
public:
    VariableItems(const ScopedSpace& space, hid_t memoryType, size_t atLeast)
        : m_space(space), m_memoryType(memoryType), m_items(std::max(CountItems(space), atLeast), nullptr)
    {
    }
    VariableItems(const VariableItems&) = delete;
    VariableItems& operator=(const VariableItems&) = delete;
    ~VariableItems() { H5Dvlen_reclaim(m_memoryType, m_space.get(), H5P_DEFAULT, m_items.data()); }

    void* data() { return m_items.data(); }
    const char* operator[](size_t index) const { return m_items[index]; }

private:
    const ScopedSpace& m_space;
    hid_t m_memoryType;
    std::vector<char*> m_items;
};

// The memory of variable-length items goes back to HDF5 on every way out. A null item is the empty text.
void ReadVariableStringDataSet(std::vector<std::string>& strings, hid_t dataSet, hid_t storedType, hid_t memoryType,
                               size_t count)
{
    // One pointer an item is what the buffer has room for.
    CheckResult(H5Tget_size(memoryType) == sizeof(char*) ? 0 : -1, kReadFailed);
    const ScopedSpace space(H5Dget_space(dataSet));
    // Without the space the memory of the items couldn't be given back, nor their number be told.
    CheckResult(H5Sget_simple_extent_npoints(space.get()), kReadFailed);
    VariableItems items(space, memoryType, count);
    CheckResult(H5Dread(dataSet, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, items.data()), kReadFailed);
    const H5T_cset_t charset = H5Tget_cset(storedType);
    CheckResult(charset, kNoCharset);
    strings.resize(count);
    for (size_t i = 0; i < count; ++i)
    {
        const char* text = items[i] == nullptr ? "" : items[i];
        AssignText(strings[i], text, std::strlen(text), charset);
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
    // HDF5 tells a character set of sequences and arrays of strings too, but their items are no texts.
    const H5T_class_t storedClass = H5Tget_class(storedType);
    CheckResult(storedClass == H5T_VLEN || storedClass == H5T_ARRAY ? -1 : 0, kNoCharset);
    const htri_t isVariable = H5Tis_variable_str(storedType);
    CheckResult(isVariable, H5Tget_size(memoryType) == 0 ? kReadFailed : kNoCharset);
    if (isVariable > 0)
    {
        ReadVariableStringDataSet(strings, dataSet, storedType, memoryType, count);
        return;
    }
    // The data set decides how much H5Dread stores, which may be more than the caller counted.
    const ScopedSpace space(H5Dget_space(dataSet));
    const size_t stored = BytesOf(CountItems(space), H5Tget_size(memoryType));
    std::vector<char> buffer(std::max({BytesOf(count, itemSize), stored, size_t{1}}), '\0');
    CheckResult(H5Dread(dataSet, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer.data()), kReadFailed);
    const H5T_cset_t charset = H5Tget_cset(storedType);
    CheckResult(charset, kNoCharset);
    strings.resize(count);
    const char* item = buffer.data();
    for (std::string& text : strings)
    {
        AssignText(text, item, strnlen(item, itemSize), charset);
        item += itemSize;
    }
}

} // namespace utils

} // namespace tarnwick::hdf
