#include "Pairs.h"
#include "types_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <memory>

using tarnwick::hdf::INode;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

// Types as data sets give them: equal to the predefined ones, with ids of their own.
std::shared_ptr<const std::vector<hid_t>> StoredTypes()
{
    auto types = std::make_shared<std::vector<hid_t>>();
    for (int type = TDataType::Char; type <= TDataType::String; ++type)
    {
        types->push_back(H5Tcopy(INode::DataTypeToHDFType(static_cast<TDataType::TDataType>(type))));
    }
    return types;
}

template <typename Translate>
bench::Side ForAll(const std::shared_ptr<const std::vector<hid_t>>& types, Translate translate)
{
    return [=]
    {
        return bench::SecondsOf(
            [&]
            {
                for (hid_t type : *types)
                {
                    translate(type);
                }
            });
    };
}

} // namespace

void bench::RegisterWork()
{
    const auto types = StoredTypes();
    const auto plain = ForAll(types, [](hid_t type) { plain_look_at_type(type); });
    Compare("types/translate", types->size(), 0, ForAll(types, [](hid_t& type) { INode::HDFTypeToDataType(type); }),
            plain);
    Compare("types/translate-against-a-walk", types->size(), 1,
            ForAll(types, [](hid_t& type) { INode::HDFTypeToDataType(type); }),
            ForAll(types, [](hid_t type) { plain_walk_types(type); }));
}
