#include "Sides.h"

#include <deque>

using namespace bench;

namespace
{

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

// The work for each attribute of each object. One object of the work serves all: what it has is made once.
template <typename Work>
struct ForEachAttribute
{
    template <typename Objects>
    void operator()(Objects& objects, std::size_t count) const
    {
        const std::size_t each = count / objects.size();
        const std::vector<std::string>& names = Names("attribute", each);
        const std::vector<std::string>& texts = Texts(each);
        const Work work;
        for (const auto& object : objects)
        {
            for (std::size_t i = 0; i < each; ++i)
            {
                work(object, names[i], texts[i]);
            }
        }
    }
};

using Group = boost::shared_ptr<IGroup>;

struct SetByLibrary
{
    void operator()(const Group& group, Name name, Name text) const { group->SetAttr(name, text); }
};

struct SetPlainly
{
    const hsize_t one = 1;
    Id space{H5Screate_simple(1, &one, nullptr)};
    Id type{H5Tcopy(H5T_C_S1)};

    SetPlainly() { H5Tset_cset(type, H5T_CSET_UTF8); }
    void operator()(hid_t group, Name name, Name text) const
    {
        H5Tset_size(type, text.size());
        const Id attribute(H5Acreate2(group, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT));
        H5Awrite(attribute, type, text.c_str());
    }
};

struct SetEachPlainly
{
    void operator()(hid_t group, Name name, Name text) const { SetPlainly{}(group, name, text); }
};

struct SetByCpp
{
    void operator()(const H5::Group& group, Name name, Name text) const
    {
        const hsize_t one = 1;
        H5::StrType type(H5::PredType::C_S1, text.size());
        type.setCset(H5T_CSET_UTF8);
        H5::Attribute attribute = group.createAttribute(name, type, H5::DataSpace(1, &one));
        attribute.write(type, text);
    }
};

struct Get
{
    void operator()(const Group& group, Name name, Name /*text*/) const { group->GetAttr(name); }
    void operator()(hid_t group, Name name, Name /*text*/) const
    {
        const Id attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
        const Id type(H5Aget_type(attribute));
        std::string text(H5Tget_size(type), '\0');
        if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0 && H5Tget_cset(type) >= 0)
        {
            H5Aread(attribute, type, text.data());
        }
    }
    void operator()(const H5::Group& group, Name name, Name /*text*/) const
    {
        const H5::Attribute attribute = group.openAttribute(name);
        std::string text;
        attribute.read(attribute.getStrType(), text);
    }
};

herr_t CopyName(hid_t /*object*/, const char* name, const H5A_info_t* /*info*/, void* names)
{
    static_cast<std::vector<std::string>*>(names)->emplace_back(name);
    return 0;
}

struct List
{
    template <typename Objects>
    void operator()(Objects& objects, std::size_t /*count*/) const
    {
        for (const auto& object : objects)
        {
            std::vector<std::string> names;
            ListNames(object, names);
        }
    }

    static void ListNames(const Group& group, std::vector<std::string>& /*names*/) { group->ListAttrs(); }
    static void ListNames(hid_t group, std::vector<std::string>& names)
    {
        H5Aiterate2(group, H5_INDEX_CRT_ORDER, H5_ITER_INC, nullptr, &CopyName, &names);
    }
    static void ListNames(const H5::Group& group, std::vector<std::string>& names)
    {
        const int count = group.getNumAttrs();
        for (int i = 0; i < count; ++i)
        {
            names.push_back(group.openAttribute(static_cast<unsigned int>(i)).getName());
        }
    }
};

// Opens the groups on which the attributes are spread, and makes those that aren't there.
struct Objects
{
    std::size_t attributesOfEach; ///< 0: one object has all.

    const std::vector<std::string>& NamesFor(std::size_t count) const
    {
        return Names("object", attributesOfEach == 0 ? 1 : count / attributesOfEach);
    }

    std::vector<Group> operator()(IFile& file, std::size_t count) const
    {
        std::vector<Group> groups;
        for (Name name : NamesFor(count))
        {
            groups.push_back(file.GetRoot()->CreateGroup(name));
        }
        return groups;
    }
    std::deque<Id> operator()(hid_t file, std::size_t count) const
    {
        std::deque<Id> groups;
        for (Name name : NamesFor(count))
        {
            const bool isThere = H5Lexists(file, name.c_str(), H5P_DEFAULT) > 0;
            groups.emplace_back(isThere ? H5Gopen2(file, name.c_str(), H5P_DEFAULT)
                                        : H5Gcreate2(file, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        }
        return groups;
    }
    std::vector<H5::Group> operator()(H5::H5File& file, std::size_t count) const
    {
        const std::deque<Id> groups = (*this)(file.getId(), count);
        return {groups.begin(), groups.end()};
    }
};

const Reasons kEachByItself = {{"*", "each call opens and closes the attribute and tests its type"}};
const Reasons kAllNames = {{"pytables", "PyTables reads all names when it opens a group, outside of what is measured"},
                           {"*", "each call opens and closes the attribute and tests its type"}};
const Reasons kReplaced = {
    {"*", "an attribute is replaced, so it is asked for first, and each call makes its own space and type where the "
          "program makes one for all"}};

void AddRows(Rows& rows, Name word, std::size_t attributesOfEach, const Sizes& counts)
{
    const Objects open = {attributesOfEach};
    const Place fresh = {"attributes"};
    const Place there = {"attributes-" + std::to_string(attributesOfEach), "r+",
                         [=](Name path, std::size_t count)
                         {
                             const auto file = IFile::Open(path, "w", 0);
                             auto groups = open(*file, count);
                             ForEachAttribute<SetByLibrary>{}(groups, count);
                         }};
    rows.push_back(On({"attributes/get texts of " + word, "attributes", counts, 1.10, kEachByItself}, there, open,
                      ForEachAttribute<Get>{}));
    rows.push_back(
        On({"attributes/list names of " + word, "attributes", counts, 1.10, kAllNames}, there, open, List{}));
    Row set = {"attributes/set texts on " + word, "attributes", counts, 1.10, kReplaced};
    set.library = OnFile(fresh, LibraryFile, open, ForEachAttribute<SetByLibrary>{});
    set.plain = OnFile(fresh, PlainFile, open, ForEachAttribute<SetPlainly>{});
    set.cpp = OnFile(fresh, CppFile, open, ForEachAttribute<SetByCpp>{});
    rows.push_back(set);
    rows.push_back(Beside(set, "a space and a type for each", 0,
                          OnFile(fresh, PlainFile, open, ForEachAttribute<SetEachPlainly>{})));
}

} // namespace

bench::Rows bench::AttributeRows()
{
    Rows rows;
    AddRows(rows, "many objects, 5 each", 5, {500, 2500, 10000});
    AddRows(rows, "one object", 0, {10, 100, 1000});
    return rows;
}
