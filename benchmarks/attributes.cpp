#include "Pairs.h"
#include "attributes_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <memory>

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;

namespace
{

constexpr double kTarget = 1.10;

// So many objects with so many attributes each.
struct Shape
{
    std::size_t objects;
    std::size_t attributes;

    std::string Text() const { return std::to_string(objects) + "x" + std::to_string(attributes); }
};

std::vector<std::string> Values(std::size_t count)
{
    std::vector<std::string> values;
    for (std::size_t i = 0; i < count; ++i)
    {
        values.push_back("channel " + std::to_string(i) + ", Grad Celsius");
    }
    return values;
}

// The objects of one file, open.
struct Objects
{
    explicit Objects(const std::string& path, const std::string& mode, const Shape& shape)
        : file(IFile::Open(path, mode, 0))
    {
        for (const std::string& name : bench::Names("object", shape.objects))
        {
            nodes.push_back(file->GetRoot()->CreateGroup(name));
            ids.push_back(nodes.back()->LocationID());
        }
    }

    boost::shared_ptr<IFile> file;
    std::vector<boost::shared_ptr<IGroup>> nodes;
    std::vector<hid_t> ids;
};

struct Attributes
{
    explicit Attributes(std::size_t count) : names(bench::Names("attribute", count)), values(Values(count)) {}

    bench::Texts names;
    bench::Texts values;
};

void SetAll(const Objects& objects, const Attributes& attributes)
{
    for (const auto& node : objects.nodes)
    {
        for (std::size_t k = 0; k < attributes.names.strings.size(); ++k)
        {
            node->SetAttr(attributes.names.strings[k], attributes.values.strings[k]);
        }
    }
}

void GetAll(const Objects& objects, const Attributes& attributes)
{
    for (const auto& node : objects.nodes)
    {
        for (const std::string& name : attributes.names.strings)
        {
            node->GetAttr(name);
        }
    }
}

void RegisterShape(const Shape& shape)
{
    const auto attributes = std::make_shared<const Attributes>(shape.attributes);
    const std::size_t count = shape.objects * shape.attributes;
    const std::string group = shape.objects == 1 ? "-on-one-object" : "-on-many-objects";
    const auto compare = [&](const std::string& work, bool fresh, double target,
                             std::function<void(const Objects&)> library, std::function<void(const Objects&)> plain)
    {
        const auto side = [=](const std::string& kind, const std::function<void(const Objects&)>& doWork)
        {
            return [=]
            {
                const Objects objects(bench::PathOf("attributes-" + shape.Text() + kind), fresh ? "w" : "r+", shape);
                return bench::SecondsOf([&] { doWork(objects); });
            };
        };
        bench::Compare("attributes/" + work + group, count, target, side("-library.h5", library),
                       side(fresh ? "-plain.h5" : "-library.h5", plain));
    };
    const auto n = shape.attributes;
    compare(
        "set", true, kTarget, [=](const Objects& objects) { SetAll(objects, *attributes); },
        [=](const Objects& objects)
        {
            plain_set_attributes(objects.ids.data(), objects.ids.size(), attributes->names.pointers.data(),
                                 attributes->values.pointers.data(), n);
        });
    compare(
        "set-against-a-space-and-type-each", true, 0, [=](const Objects& objects) { SetAll(objects, *attributes); },
        [=](const Objects& objects)
        {
            plain_set_attributes_each(objects.ids.data(), objects.ids.size(), attributes->names.pointers.data(),
                                      attributes->values.pointers.data(), n);
        });
    compare(
        "get", false, kTarget, [=](const Objects& objects) { GetAll(objects, *attributes); },
        [=](const Objects& objects)
        { plain_get_attributes(objects.ids.data(), objects.ids.size(), attributes->names.pointers.data(), n); });
    compare(
        "list", false, kTarget,
        [](const Objects& objects)
        {
            for (const auto& node : objects.nodes)
            {
                node->ListAttrs();
            }
        },
        [](const Objects& objects) { plain_list_attributes(objects.ids.data(), objects.ids.size()); });
}

} // namespace

void bench::RegisterWork()
{
    for (const std::size_t objects : Sizes({100, 500, 2000}))
    {
        RegisterShape({objects, 5});
    }
    for (const std::size_t attributes : {10, 100, 1000})
    {
        RegisterShape({1, attributes});
    }
}
