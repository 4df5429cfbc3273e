#include "Sides.h"

#include <algorithm>
#include <cstring>
#include <deque>

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;

namespace
{

// The objects of a file, open, on which the attributes are spread: by the library, by plain HDF5, by its C++ API.
using Groups = std::vector<boost::shared_ptr<IGroup>>;
using PlainGroups = std::deque<bench::Id>;
using CppGroups = std::vector<H5::Group>;

// A text for each attribute of an object.
const std::vector<std::string>& Texts(std::size_t count)
{
    static std::vector<std::string> texts;
    while (texts.size() < count)
    {
        texts.push_back("channel " + std::to_string(texts.size()) + ", Grad Celsius");
    }
    return texts;
}

// The work for each attribute of each object.
template <typename Work>
auto ForEachAttribute(Work work)
{
    return [=](auto&& groups, std::size_t count)
    {
        const std::size_t each = count / groups.size();
        const std::vector<std::string>& names = bench::Names("attribute", each);
        const std::vector<std::string>& texts = Texts(each);
        for (auto&& group : groups)
        {
            for (std::size_t i = 0; i < each; ++i)
            {
                work(group, names[i], texts[i]);
            }
        }
    };
}

template <typename Work>
auto ForEachGroup(Work work)
{
    return [=](auto&& groups, std::size_t /*count*/)
    {
        for (auto&& group : groups)
        {
            work(group);
        }
    };
}

void Set(const boost::shared_ptr<IGroup>& group, const std::string& name, const std::string& text)
{
    group->SetAttr(name, text);
}

void SetPlainly(hid_t group, const std::string& name, const std::string& text, hid_t space, hid_t type)
{
    H5Tset_size(type, text.size());
    const bench::Id attribute(H5Acreate2(group, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(attribute, type, text.c_str());
}

// A space and a type serve so many attributes as `work` sets by them.
template <typename Work>
void WithSpaceAndType(Work work)
{
    const hsize_t one = 1;
    const bench::Id space(H5Screate_simple(1, &one, nullptr));
    const bench::Id type(H5Tcopy(H5T_C_S1));
    H5Tset_cset(type, H5T_CSET_UTF8);
    work(space, type);
}

void SetAllPlainly(const PlainGroups& groups, std::size_t count)
{
    WithSpaceAndType(
        [&](hid_t space, hid_t type)
        {
            ForEachAttribute([=](hid_t group, const std::string& name, const std::string& text)
                             { SetPlainly(group, name, text, space, type); })(groups, count);
        });
}

void SetPlainlyAlone(hid_t group, const std::string& name, const std::string& text)
{
    WithSpaceAndType([&](hid_t space, hid_t type) { SetPlainly(group, name, text, space, type); });
}

void SetByCpp(const H5::Group& group, const std::string& name, const std::string& text)
{
    const hsize_t one = 1;
    H5::StrType type(H5::PredType::C_S1, text.size());
    type.setCset(H5T_CSET_UTF8);
    H5::Attribute attribute = group.createAttribute(name, type, H5::DataSpace(1, &one));
    attribute.write(type, text);
}

void Get(const boost::shared_ptr<IGroup>& group, const std::string& name, const std::string& /*text*/)
{
    group->GetAttr(name);
}

void GetPlainly(hid_t group, const std::string& name, const std::string& /*text*/)
{
    const bench::Id attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
    const bench::Id type(H5Aget_type(attribute));
    std::string text(H5Tget_size(type), '\0');
    if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0 && H5Tget_cset(type) >= 0)
    {
        H5Aread(attribute, type, text.data());
    }
}

void GetByCpp(const H5::Group& group, const std::string& name, const std::string& /*text*/)
{
    const H5::Attribute attribute = group.openAttribute(name);
    std::string text;
    attribute.read(attribute.getStrType(), text);
}

herr_t CopyName(hid_t /*object*/, const char* name, const H5A_info_t* /*info*/, void* names)
{
    static_cast<std::vector<std::string>*>(names)->emplace_back(name);
    return 0;
}

void ListPlainly(hid_t group)
{
    std::vector<std::string> names;
    H5Aiterate2(group, H5_INDEX_CRT_ORDER, H5_ITER_INC, nullptr, &CopyName, &names);
}

void ListByCpp(const H5::Group& group)
{
    std::vector<std::string> names;
    const int count = group.getNumAttrs();
    for (int i = 0; i < count; ++i)
    {
        names.push_back(group.openAttribute(static_cast<unsigned int>(i)).getName());
    }
}

// Opens `objects` groups of a file, and makes those that aren't there.
struct OpenObjects
{
    std::size_t attributesOfEach; // 0: one object has all

    const std::vector<std::string>& NamesFor(std::size_t count) const
    {
        return bench::Names("object", attributesOfEach == 0 ? 1 : count / attributesOfEach);
    }

    Groups operator()(IFile& file, std::size_t count) const
    {
        Groups groups;
        for (const std::string& name : NamesFor(count))
        {
            groups.push_back(file.GetRoot()->CreateGroup(name));
        }
        return groups;
    }

    PlainGroups operator()(hid_t file, std::size_t count) const
    {
        PlainGroups groups;
        for (const std::string& name : NamesFor(count))
        {
            const bool isThere = H5Lexists(file, name.c_str(), H5P_DEFAULT) > 0;
            groups.emplace_back(isThere ? H5Gopen2(file, name.c_str(), H5P_DEFAULT)
                                        : H5Gcreate2(file, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        }
        return groups;
    }

    CppGroups operator()(H5::H5File& file, std::size_t count) const
    {
        const PlainGroups groups = (*this)(file.getId(), count);
        return CppGroups(groups.begin(), groups.end());
    }
};

void AddRows(bench::Rows& rows, const std::string& word, std::size_t attributesOfEach,
             const std::vector<std::size_t>& counts)
{
    const OpenObjects open = {attributesOfEach};
    const auto make = [=](const std::string& path, std::size_t count)
    {
        ForEachAttribute(Set)(open(*IFile::Open(path, "w", 0), count), count);
    };
    const bench::Place fresh = {"attributes"};
    const bench::Place there = {"attributes-" + std::to_string(attributesOfEach), "r+", make};
    const auto list = [](const boost::shared_ptr<IGroup>& group)
    {
        group->ListAttrs();
    };
    const auto add = [&](const std::string& work, const bench::Place& place, double target, auto... sides)
    {
        rows.push_back(bench::On({"attributes/" + work, "attributes", counts, target}, place, open, sides...));
    };
    add("get texts of " + word, there, 1.10, ForEachAttribute(Get), ForEachAttribute(GetPlainly),
        ForEachAttribute(GetByCpp));
    add("list names of " + word, there, 1.10, ForEachGroup(list), ForEachGroup(ListPlainly), ForEachGroup(ListByCpp));
    add("set texts on " + word, fresh, 1.10, ForEachAttribute(Set), SetAllPlainly, ForEachAttribute(SetByCpp));
    add("set texts on " + word + ", beside a space and a type for each", fresh, 0, ForEachAttribute(Set),
        ForEachAttribute(SetPlainlyAlone));
}

} // namespace

bench::Rows bench::AttributeRows()
{
    Rows rows;
    AddRows(rows, "many objects, 5 each", 5, {500, 2500, 10000});
    AddRows(rows, "one object", 0, {10, 100, 1000});
    return rows;
}
