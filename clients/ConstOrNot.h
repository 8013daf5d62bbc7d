#pragma once

#include <concepts>
#include <type_traits>

namespace DbusHelper
{

/// `Record` is the wanted type, constant or not: one `Fields` then serves for writing and for reading it.
template <typename Record, typename Wanted>
concept ConstOrNot = std::same_as<std::remove_const_t<Record>, Wanted>;

} // namespace DbusHelper
