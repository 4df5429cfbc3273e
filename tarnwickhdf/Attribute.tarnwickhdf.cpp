#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/IntegerAttribute.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <tarnwick/text.h>

#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tarnwick::hdf
{

const std::string reservedAttributePrefix = "__vorl_";

namespace
{

constexpr size_t kNameBufferSize = 512;
constexpr size_t kUsualAttributes = 16;

bool IsReserved(const char* attributeName)
{
    return std::strncmp(attributeName, reservedAttributePrefix.c_str(), reservedAttributePrefix.size()) == 0;
}

[[noreturn]] void ThrowUnreadable(const std::string& name)
{
    throw std::runtime_error("could not read attribute: " + name);
}

hssize_t CountElements(hid_t attribute)
{
    const ScopedSpace space(H5Aget_space(attribute));
    return H5Sget_simple_extent_npoints(space.get());
}

// The attribute decides how much H5Aread stores, and there is room for one value.
bool HoldsAValue(hid_t attribute, const std::string& name)
{
    const hssize_t elements = CountElements(attribute);
    if (elements < 0 || elements > 1)
    {
        ThrowUnreadable(name);
    }
    return elements == 1;
}

// H5Aopen gets to an attribute of the object itself without the detour over a location that H5Aopen_name takes. The
// words of a failure are those of H5Aopen_name.
ScopedAttribute OpenAttribute(hid_t location, const std::string& name)
{
    ScopedAttribute attribute(H5Aopen(location, name.c_str(), H5P_DEFAULT));
    if (attribute.get() < 0)
    {
        attribute.reset(H5Aopen_name(location, name.c_str()));
        CheckResult(attribute.get(), "invalid attribute name: ", name);
    }
    return attribute;
}

void ReadFixedStringAttr(hid_t attribute, hid_t type, const std::string& name, std::string& result)
{
    const size_t size = H5Tget_size(type);
    const H5T_cset_t charset = H5Tget_cset(type);
    // Arrays and sequences of strings have a character set too, but no single text.
    if (charset < 0 || H5Tget_class(type) != H5T_STRING)
    {
        throw std::runtime_error("could not detect charset for attribute: " + name);
    }
    if (size == 0)
    {
        ThrowUnreadable(name);
    }
    result.clear();
    // The storage of a single value tells its number of elements at no cost of a data space.
    if (H5Aget_storage_size(attribute) != size && !HoldsAValue(attribute, name))
    {
        return;
    }
    result.assign(size, '\0');
    if (H5Aread(attribute, type, result.data()) < 0)
    {
        ThrowUnreadable(name);
    }
    if (!result.empty() && result.back() == '\0')
    {
        result.pop_back();
    }
    if (charset == H5T_CSET_ASCII)
    {
        result.resize(std::min(result.find('\0'), result.size()));
        result = latin1_to_utf8(result);
    }
}

std::string ReadVariableStringAttr(hid_t attribute, hid_t type, const std::string& name)
{
    if (!HoldsAValue(attribute, name))
    {
        return {};
    }
    char* text = nullptr;
    if (H5Aread(attribute, type, static_cast<void*>(&text)) < 0)
    {
        ThrowUnreadable(name);
    }
    const std::unique_ptr<char, herr_t (*)(void*)> owner(text, &H5free_memory);
    return text == nullptr ? std::string() : std::string(text);
}

std::string NameOf(hid_t attribute)
{
    char name[kNameBufferSize] = "";
    CheckResult(H5Aget_name(attribute, sizeof(name), name), "could not get attribute name");
    return name;
}

std::string NameAt(hid_t location, int index)
{
    const ScopedAttribute attribute(H5Aopen_idx(location, static_cast<unsigned int>(index)));
    CheckResult(attribute.get(), "could not open attribute by index");
    return NameOf(attribute.get());
}

int CountAttributes(hid_t location)
{
    const int count = H5Aget_num_attrs(location);
    CheckResult(count, "could not get number of attributes");
    return count;
}

struct NameCollector
{
    std::vector<std::string> names;
    std::exception_ptr failure;
};

// No exception may cross HDF5's own frames: it waits in the collector until the iteration has ended.
herr_t CollectName(hid_t /*location*/, const char* name, const H5A_info_t* /*info*/, void* data)
{
    auto& collector = *static_cast<NameCollector*>(data);
    try
    {
        if (!IsReserved(name))
        {
            collector.names.emplace_back(name, strnlen(name, kNameBufferSize - 1));
        }
        return 0;
    }
    catch (...)
    {
        collector.failure = std::current_exception();
        return -1;
    }
}

// What HDF5 can't iterate is opened by index, one attribute after the other, for the words of the failure.
std::vector<std::string> ListByIndex(hid_t location)
{
    std::vector<std::string> names;
    const int count = CountAttributes(location);
    for (int index = 0; index < count; ++index)
    {
        std::string name = NameAt(location, index);
        if (!IsReserved(name.c_str()))
        {
            names.push_back(std::move(name));
        }
    }
    return names;
}

} // namespace

void INode::SetAttr(const std::string& name, const std::string& value)
{
    if (H5Aexists(m_location, name.c_str()) != 0)
    {
        CheckResult(H5Adelete(m_location, name.c_str()), "Fail to delete an existing attribute named: ", name);
    }
    const hsize_t dimensions[] = {1};
    ScopedType type;
    const ScopedSpace space(H5Screate_simple(1, dimensions, nullptr));
    CheckResult(space.get(), "could not create simple dataspace");
    type.reset(H5Tcopy(H5T_C_S1));
    CheckResult(type.get(), "could not copy type for attribute: ", name);
    CheckResult(H5Tset_size(type.get(), value.empty() ? 1 : value.size()),
                "could not H5Tset_size for attribute: ", name);
    CheckResult(H5Tset_cset(type.get(), GetEncoding()), "could not set encoding for attribute: ", name);
    const ScopedAttribute attribute(H5Acreate1(m_location, name.c_str(), type.get(), space.get(), H5P_DEFAULT));
    CheckResult(attribute.get(), "fail to create attribute: ", name);
    CheckResult(H5Awrite(attribute.get(), type.get(), value.c_str()), "could not write attribute");
}

std::string INode::GetAttr(const std::string& name) const
{
    ScopedType type;
    const ScopedAttribute attribute = OpenAttribute(m_location, name);
    type.reset(H5Aget_type(attribute.get()));
    const htri_t isVariable = H5Tis_variable_str(type.get());
    if (isVariable < 0)
    {
        ThrowUnreadable(name);
    }
    if (isVariable > 0)
    {
        return ReadVariableStringAttr(attribute.get(), type.get(), name);
    }
    std::string result;
    ReadFixedStringAttr(attribute.get(), type.get(), name, result);
    return result;
}

TDataType::TDataType INode::GetAttrType(const std::string& name) const
{
    ScopedType type;
    const ScopedAttribute attribute = OpenAttribute(m_location, name);
    type.reset(H5Aget_type(attribute.get()));
    hid_t typeId = type.get();
    return HDFTypeToDataType(typeId);
}

std::string INode::GetAttrName(int index) const
{
    return NameAt(m_location, index);
}

int INode::GetNumberOfAttrs() const
{
    return CountAttributes(m_location);
}

// Opening one attribute after the other by index would build the index of all of them each time.
std::vector<std::string> INode::ListAttrs() const
{
    NameCollector collector;
    collector.names.reserve(kUsualAttributes);
    if (H5Aiterate2(m_location, H5_INDEX_CRT_ORDER, H5_ITER_INC, nullptr, &CollectName, &collector) >= 0)
    {
        return std::move(collector.names);
    }
    if (collector.failure)
    {
        std::rethrow_exception(collector.failure);
    }
    return ListByIndex(m_location);
}

bool INode::HasAttr(const std::string& name) const
{
    return H5Aexists(m_location, name.c_str()) != 0;
}

void INode::DelAttr(const std::string& name)
{
    CheckResult(H5Adelete(m_location, name.c_str()), "could not delete attribute ", name);
}

unsigned int GetIntAttr(const INode& node, const std::string& name, TDataType::TDataType type)
{
    const ScopedAttribute attribute = OpenAttribute(node.LocationID(), name);
    // The attribute decides how much H5Aread stores, and there is room for one number.
    CheckResult(CountElements(attribute.get()) == 1 ? 0 : -1, "could not read attribute: ", name);
    unsigned int value = 0;
    CheckResult(H5Aread(attribute.get(), INode::DataTypeToHDFType(type), &value), "could not read attribute: ", name);
    return value;
}

void SetIntAttr(const INode& node, const std::string& name, unsigned int value, TDataType::TDataType type)
{
    const hsize_t dimensions[] = {1};
    const ScopedSpace space(H5Screate_simple(1, dimensions, nullptr));
    CheckResult(space.get(), "could not create simple dataspace");
    const hid_t typeId = INode::DataTypeToHDFType(type);
    const hid_t location = node.LocationID();
    ScopedAttribute attribute;
    if (H5Aexists(location, name.c_str()) > 0)
    {
        attribute.reset(H5Aopen_name(location, name.c_str()));
        CheckResult(attribute.get(), "could not open attribute");
    }
    else
    {
        attribute.reset(H5Acreate1(location, name.c_str(), typeId, space.get(), H5P_DEFAULT));
        CheckResult(attribute.get(), "could not create attribute");
    }
    CheckResult(H5Awrite(attribute.get(), typeId, &value), "could not write attribute");
}

} // namespace tarnwick::hdf
