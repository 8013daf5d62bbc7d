#pragma once

#include <string>
#include <string_view>

namespace Halvexd
{

/// The address under which sd-bus reaches the bus with this address on the unit with this IP. Both must have been found
/// well-formed: see OpenRemoteBus.
[[nodiscard]] std::string RemoteBusAddress(std::string_view ip, std::string_view address);

} // namespace Halvexd
