// Prints any HDF5 file, a line for each thing in it: groups, arrays, extensible arrays, tables, attributes, and what the
// library opens as nothing, with the reason.
#include "TypeName.h"

#include <tarnwickhdf/tarnwickhdf.h>
#include <tarnwickhdf/version.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <getopt.h>

namespace
{

namespace hdf = tarnwick::hdf;

// An HDF5 id of a call that the library has no operation for.
class Holder
{
public:
    Holder(hid_t id, herr_t (*close)(hid_t)) : m_id(id), m_close(close) {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder()
    {
        if (m_id >= 0)
        {
            m_close(m_id);
        }
    }
    hid_t Id() const { return m_id; }

private:
    hid_t m_id;
    herr_t (*m_close)(hid_t);
};

// Keeps every name and text on one line, and long texts short.
std::string Printable(const std::string& text)
{
    constexpr size_t longest = 200;
    std::ostringstream out;
    size_t end = std::min(text.size(), longest);
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
    {
        --end; // not inside a character
    }
    for (const char character : text.substr(0, end))
    {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F)
        {
            out << "\\x" << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(code) << std::dec;
        }
        else
        {
            out << character;
        }
    }
    if (end < text.size())
    {
        out << " ... (" << text.size() << " bytes)";
    }
    return out.str();
}

// The message of an exception without HDF5's traceback below it.
std::string Reason(const std::exception& error)
{
    const std::string text = error.what();
    const std::string line = text.substr(0, text.find('\n'));
    return Printable(line.size() < text.size() && line.back() == ':' ? line.substr(0, line.size() - 1) : line);
}

// The name of a type's class, also for types that the library has no element type for.
std::string ClassName(hid_t type)
{
    static const std::array<const char*, H5T_NCLASSES> names = {
        "integer",  "float",     "time",        "string",          "bit field", "opaque",
        "compound", "reference", "enumeration", "variable-length", "array"};
    const H5T_class_t typeClass = H5Tget_class(type);
    return typeClass < 0 ? "unknown" : names.at(static_cast<size_t>(typeClass));
}

// What a type is: "integer of 4 bytes, big-endian", "compound of 9 bytes: time float, color enumeration".
std::string Explain(hid_t type)
{
    const size_t size = H5Tget_size(type);
    std::string text = ClassName(type) + " of " + std::to_string(size) + (size == 1 ? " byte" : " bytes");
    if (H5Tget_class(type) != H5T_COMPOUND)
    {
        return text + (H5Tget_order(type) == H5T_ORDER_BE ? ", big-endian" : "");
    }
    const int members = H5Tget_nmembers(type);
    for (unsigned int member = 0; static_cast<int>(member) < members; ++member)
    {
        const std::unique_ptr<char, void (*)(void*)> name(H5Tget_member_name(type, member),
                                                          [](void* memory) { H5free_memory(memory); });
        const Holder memberType(H5Tget_member_type(type, member), H5Tclose);
        text += (member == 0 ? ": " : ", ") + std::string(name ? name.get() : "?") + ' ' + ClassName(memberType.Id());
    }
    return Printable(text);
}

// The same for a data set, for somebody who wonders why it doesn't open.
std::string Explain(const hdf::IGroup& group, const std::string& name)
{
    const Holder dataSet(H5Dopen2(group.LocationID(), name.c_str(), H5P_DEFAULT), H5Dclose);
    const Holder type(H5Dget_type(dataSet.Id()), H5Tclose);
    const Holder space(H5Dget_space(dataSet.Id()), H5Sclose);
    const int rank = H5Sget_simple_extent_ndims(space.Id());
    return Explain(type.Id()) + "; " + std::to_string(rank) + (rank == 1 ? " dimension" : " dimensions");
}

// The text of an attribute, or the type and the number of elements of one that isn't a single text.
std::string DescribeAttribute(const hdf::INode& node, const std::string& name)
{
    try
    {
        return " = \"" + Printable(node.GetAttr(name)) + '"';
    }
    catch (const std::exception&)
    {
    }
    const Holder attribute(H5Aopen(node.LocationID(), name.c_str(), H5P_DEFAULT), H5Aclose);
    const Holder type(H5Aget_type(attribute.Id()), H5Tclose);
    const Holder space(H5Aget_space(attribute.Id()), H5Sclose);
    const std::string size = ", elements " + std::to_string(H5Sget_simple_extent_npoints(space.Id()));
    try
    {
        return ": " + TypeName(node.GetAttrType(name)) + size;
    }
    catch (const std::exception&)
    {
        return ": " + ClassName(type.Id()) + size;
    }
}

void PrintAttributes(const hdf::INode& node)
{
    for (const std::string& name : node.ListAttrs())
    {
        std::cout << "  @" << Printable(name) << DescribeAttribute(node, name) << '\n';
    }
}

std::string Describe(const hdf::IArray& array)
{
    return "array of " + TypeName(array.GetType()) + ", length " + std::to_string(array.GetLength()) + ", components " +
           std::to_string(array.GetComponents());
}

std::string Describe(const hdf::IExtensibleArray2D& array)
{
    return "extensible array of " + TypeName(array.GetType()) + ", " + std::to_string(array.GetNumberOfRows()) +
           " rows x " + std::to_string(array.GetNumberOfColumns()) + " columns";
}

std::string Describe(const hdf::ITable& table)
{
    std::string text = "table, " + std::to_string(table.GetNumberOfRows()) + " rows";
    for (int column = 0; column < static_cast<int>(table.GetNumberOfColumns()); ++column)
    {
        const hdf::TDataType::TDataType type = table.GetColumnDataType(column);
        text += (column == 0 ? ": " : ", ") + Printable(table.GetColumnName(column)) + ' ' +
                (type == hdf::TDataType::Undefined ? ClassName(table.GetColumnTypeID(column)) : TypeName(type));
    }
    return text;
}

class Tree
{
public:
    // The groups wait in a list, not on the stack: a file may be nested as deep as it likes.
    void Print(const boost::shared_ptr<hdf::IGroup>& root)
    {
        PrintOrSay("/", [&] { PrintGroup(root, "/"); });
        while (!m_waiting.empty())
        {
            const Waiting next = m_waiting.back();
            m_waiting.pop_back();
            PrintOrSay(next.path, [&] { PrintGroup(next.parent->GetGroup(next.name), next.path); });
        }
    }

private:
    struct Child
    {
        std::string name;
        H5L_type_t link;
    };

    struct Waiting
    {
        boost::shared_ptr<hdf::IGroup> parent;
        std::string name;
        std::string path;
    };

    // Where in which file a group lies: the same for all its names.
    using Place = std::array<unsigned long, 4>;

    static Place PlaceOf(const hdf::IGroup& group)
    {
        H5G_stat_t info{};
        if (H5Gget_objinfo(group.LocationID(), ".", 1, &info) < 0)
        {
            throw std::runtime_error("HDF5 can't tell where the group lies");
        }
        return {info.fileno[0], info.fileno[1], info.objno[0], info.objno[1]};
    }

    static herr_t Collect(hid_t, const char* name, const H5L_info_t* info, void* children) noexcept
    {
        static_cast<std::vector<Child>*>(children)->push_back({name, info->type});
        return 0;
    }

    // What is broken in one place doesn't hide the rest of the file.
    static void PrintOrSay(const std::string& path, const std::function<void()>& print)
    {
        try
        {
            print();
        }
        catch (const std::exception& error)
        {
            std::cout << Printable(path) << "  can't be read: " << Reason(error) << '\n';
        }
    }

    void PrintGroup(const boost::shared_ptr<hdf::IGroup>& group, const std::string& path)
    {
        const auto [place, isNew] = m_seen.emplace(PlaceOf(*group), path);
        if (!isNew)
        {
            std::cout << Printable(path) << "  group, the same as " << Printable(place->second) << '\n';
            return;
        }
        std::cout << Printable(path) << "  group\n";
        PrintAttributes(*group);

        std::vector<Child> children;
        if (H5Literate(group->LocationID(), H5_INDEX_NAME, H5_ITER_INC, nullptr, Collect, &children) < 0)
        {
            throw std::runtime_error("HDF5 can't list the group");
        }
        std::vector<Waiting> groups;
        for (const Child& child : children)
        {
            const std::string childPath = (path == "/" ? path : path + '/') + child.name;
            PrintOrSay(childPath, [&] { PrintChild(group, child, childPath, groups); });
        }
        m_waiting.insert(m_waiting.end(), groups.rbegin(), groups.rend());
    }

    static void PrintChild(const boost::shared_ptr<hdf::IGroup>& group, const Child& child, const std::string& path,
                           std::vector<Waiting>& groups)
    {
        if (child.link != H5L_TYPE_HARD)
        {
            PrintLink(*group, child, path);
            return;
        }
        H5G_stat_t info{};
        if (H5Gget_objinfo(group->LocationID(), child.name.c_str(), 1, &info) < 0)
        {
            std::cout << Printable(path) << "  can't be read\n";
        }
        else if (info.type == H5G_GROUP)
        {
            groups.push_back({group, child.name, path});
        }
        else if (info.type == H5G_DATASET)
        {
            PrintDataSet(*group, child.name, path);
        }
        else
        {
            std::cout << Printable(path) << "  named data type\n";
        }
    }

    static void PrintLink(const hdf::IGroup& group, const Child& child, const std::string& path)
    {
        H5L_info_t info{};
        H5Lget_info(group.LocationID(), child.name.c_str(), &info, H5P_DEFAULT);
        std::vector<char> value(info.u.val_size + 1, '\0');
        H5Lget_val(group.LocationID(), child.name.c_str(), value.data(), value.size(), H5P_DEFAULT);
        const char* file = nullptr;
        const char* target = nullptr;
        if (child.link == H5L_TYPE_SOFT)
        {
            std::cout << Printable(path) << "  soft link to " << Printable(value.data()) << '\n';
        }
        else if (child.link == H5L_TYPE_EXTERNAL &&
                 H5Lunpack_elink_val(value.data(), info.u.val_size, nullptr, &file, &target) >= 0)
        {
            std::cout << Printable(path) << "  external link to " << Printable(target) << " in " << Printable(file)
                      << '\n';
        }
        else
        {
            std::cout << Printable(path) << "  user-defined link\n";
        }
    }

    // Two dimensions of which one is unlimited open as an array and as an extensible array: then both are told.
    static void PrintDataSet(const hdf::IGroup& group, const std::string& name, const std::string& path)
    {
        const auto print = [&path](const auto& node)
        {
            std::cout << Printable(path) << "  " << Describe(*node) << '\n';
            PrintAttributes(*node);
        };
        const std::string noArray2D = ReasonOfFailure([&] { print(group.GetExtensibleArray2D(name)); });
        const std::string noTable = ReasonOfFailure([&] { print(group.GetTable(name)); });
        const std::string noArray = ReasonOfFailure([&] { print(group.GetArray(name)); });
        if (!noArray2D.empty() && !noTable.empty() && !noArray.empty())
        {
            const bool isCompound = noArray == "H5T_COMPOUND is not a valid Array";
            std::cout << Printable(path) << "  data set that opens as nothing: " << (isCompound ? noTable : noArray)
                      << " (" << Explain(group, name) << ")\n";
        }
    }

    static std::string ReasonOfFailure(const std::function<void()>& open)
    {
        try
        {
            open();
            return "";
        }
        catch (const std::exception& error)
        {
            return Reason(error);
        }
    }

    std::vector<Waiting> m_waiting;
    std::map<Place, std::string> m_seen; // hard links may run in circles
};

constexpr int kWrongUse = 2;

constexpr const char* kHelp =
    R"(Usage: tarnwickhdf-tree FILE
Prints what tarnwickhdf sees in an HDF5 file: a line for each group, array, extensible array, table, attribute and link,
and for each data set that opens as none of these the reason.

  -h, --help     print this help and exit
      --version  print the versions of the program and of its libraries and exit

The exit status is 0, 1 if the file can't be read or the output not written, and 2 for a wrong use.
)";

void PrintFile(const std::string& path)
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // the exception tells all that HDF5 would print
    const auto file = hdf::IFile::Open(path, "r", 0);
    Tree().Print(file->GetRoot());
}

// Does what the arguments ask for and gives the exit status.
int Run(int argc, char** argv)
{
    const option options[] = {
        {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'v'}, {nullptr, 0, nullptr, 0}};
    const int first = getopt_long(argc, argv, "h", options, nullptr);
    const bool isFile = first == -1 && optind == argc - 1;
    if (first == 'h')
    {
        std::cout << kHelp;
    }
    else if (first == 'v')
    {
        std::cout << "tarnwickhdf-tree " TARNWICKHDF_VERSION "\n" << hdf::DescribeVersions() << '\n';
    }
    else if (isFile)
    {
        PrintFile(argv[optind]);
    }
    else
    {
        std::cerr << "Usage: tarnwickhdf-tree FILE; tarnwickhdf-tree --help tells more\n";
        return kWrongUse;
    }
    if (!std::cout.flush())
    {
        throw std::runtime_error("the output can't be written");
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return Run(argc, argv);
    }
    catch (const std::exception& error)
    {
        std::cerr << "tarnwickhdf-tree: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
