// Prints what the library finds in any HDF5 file: groups, arrays, extensible arrays, tables, attributes, and the names of
// what it opens as none of these. Usage: tree <file>
#include <tarnwickhdf/tarnwickhdf.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

const char* NameOf(hdf::TDataType::TDataType type)
{
    static const char* const names[] = {"nested", "Char",    "UChar",   "Short",  "UShort",      "Int",       "UInt",
                                        "Int64",  "UInt64",  "Long",    "ULong",  "LongLong",    "ULongLong", "Float",
                                        "Double", "Float32", "Float64", "String", "VarLenString"};
    return names[type];
}

const char* NameOfChildType(int type)
{
    switch (type)
    {
    case H5G_DATASET:
        return "a data set of a kind that the library doesn't open";
    case H5G_TYPE:
        return "a named type";
    case H5G_LINK:
        return "a soft link";
    case H5G_UDLINK:
        return "an external or user-defined link";
    default:
        return "an object that HDF5 can't read";
    }
}

// Attributes that are no single text have a type at most; the library reads texts only.
std::string TextOf(const hdf::INode& node, const std::string& attribute)
{
    try
    {
        return "= " + node.GetAttr(attribute);
    }
    catch (const std::runtime_error&)
    {
    }
    try
    {
        return std::string(": ") + NameOf(node.GetAttrType(attribute));
    }
    catch (const std::runtime_error&)
    {
        return ": of another type";
    }
}

class TreePrinter
{
public:
    void PrintGroup(const hdf::IGroup& group, const std::string& indent)
    {
        PrintAttributes(group, indent);
        // Hard links can lead back up: a group that was printed is only named the next time.
        if (!m_printed.insert(AddressOf(group)).second)
        {
            std::cout << indent << "(printed above)\n";
            return;
        }
        std::set<std::string> opened;
        PrintArrays(group, indent, opened);
        PrintExtensibleArrays(group, indent, opened);
        PrintTables(group, indent, opened);
        PrintOthers(group, indent, opened);
        for (const auto& child : group.ListGroups())
        {
            std::cout << indent << child->GetName() << "/\n";
            PrintGroup(*child, indent + "  ");
        }
    }

private:
    using Address = std::pair<unsigned long, haddr_t>;

    static Address AddressOf(const hdf::INode& node)
    {
        H5O_info_t info = {};
        H5Oget_info2(node.LocationID(), &info, H5O_INFO_BASIC);
        return {info.fileno, info.addr};
    }

    static void PrintAttributes(const hdf::INode& node, const std::string& indent)
    {
        for (const std::string& name : node.ListAttrs())
        {
            std::cout << indent << "@" << name << " " << TextOf(node, name) << "\n";
        }
    }

    static void PrintArrays(const hdf::IGroup& group, const std::string& indent, std::set<std::string>& opened)
    {
        for (const auto& array : group.ListArrays())
        {
            opened.insert(array->GetName());
            std::cout << indent << array->GetName() << ": array of " << NameOf(array->GetType()) << ", "
                      << array->GetLength() << " x " << array->GetComponents() << "\n";
            PrintAttributes(*array, indent + "  ");
        }
    }

    static void PrintExtensibleArrays(const hdf::IGroup& group, const std::string& indent,
                                      std::set<std::string>& opened)
    {
        for (const auto& array : group.ListExtensibleArrays2D())
        {
            opened.insert(array->GetName());
            std::cout << indent << array->GetName() << ": extensible array of " << NameOf(array->GetType()) << ", "
                      << array->GetNumberOfRows() << " rows x " << array->GetNumberOfColumns() << " columns\n";
            PrintAttributes(*array, indent + "  ");
        }
    }

    static void PrintTables(const hdf::IGroup& group, const std::string& indent, std::set<std::string>& opened)
    {
        for (const auto& table : group.ListTables())
        {
            opened.insert(table->GetName());
            std::cout << indent << table->GetName() << ": table, " << table->GetNumberOfRows() << " rows\n";
            for (int column = 0; column < static_cast<int>(table->GetNumberOfColumns()); ++column)
            {
                std::cout << indent << "  | " << table->GetColumnName(column) << ": "
                          << NameOf(table->GetColumnDataType(column)) << "\n";
            }
            PrintAttributes(*table, indent + "  ");
        }
    }

    static void PrintOthers(const hdf::IGroup& group, const std::string& indent, const std::set<std::string>& opened)
    {
        const int children = static_cast<int>(group.GetNumberOfChildren());
        for (int index = 0; index < children; ++index)
        {
            const std::string name = group.GetChildName(index);
            const int type = group.GetChildType(index);
            if (type != H5G_GROUP && opened.count(name) == 0)
            {
                std::cout << indent << name << ": not opened, " << NameOfChildType(type) << "\n";
            }
        }
    }

    std::set<Address> m_printed;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: tree <file>\n";
        return 1;
    }
    try
    {
        const auto file = hdf::IFile::Open(argv[1], "r", 0);
        std::cout << file->GetFileName() << "\n";
        TreePrinter().PrintGroup(*file->GetRoot(), "  ");
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << failure.what() << "\n";
        return 1;
    }
}
