#pragma once

#include <string>
#include <tuple>

namespace Bench
{

/// One call that the daemon made to a sibling, as the responder saw it.
struct Operation
{
    std::string service;
    std::string path;
    std::string interface; ///< the property's, where one was read or written
    std::string member;
    std::string property;  ///< empty for a plain method
    std::string signature; ///< of a plain method's arguments, or of what a property is set to; basic types
};

/// Its fields, as they travel.
using OperationTexts = std::tuple<std::string, std::string, std::string, std::string, std::string, std::string>;

/// Where the responder takes the benchmark's own orders: "StartLog", "TakeLog" (the calls since then, as a list of
/// OperationTexts), "Resize" (storage devices, properties of "StorageChanged"), and "Emit" (signal,
/// count, connections of the receiver), which answers when the receiver has dealt with them all.
inline constexpr const char* responderName = "com.tavilon.common.BenchResponder1";
inline constexpr const char* responderPath = "/com/tavilon/common/BenchResponder1";

} // namespace Bench
