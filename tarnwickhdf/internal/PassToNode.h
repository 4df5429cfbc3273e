#pragma once

#include <boost/shared_ptr.hpp>

#include <memory>
#include <utility>

namespace tarnwick::hdf
{

/// Ends the making of a node, which owns the ids from here on: their holders let go before anything else can fail.
template <typename Node, typename... Holders>
boost::shared_ptr<Node> PassToNode(std::unique_ptr<Node> node, Holders&... holders)
{
    (holders.release(), ...);
    return boost::shared_ptr<Node>(std::move(node));
}

} // namespace tarnwick::hdf
