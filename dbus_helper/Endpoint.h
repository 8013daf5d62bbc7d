#pragma once

namespace DbusHelper
{

/// Where a peer's members live. The texts must outlive the endpoint: literals for fixed objects, the caller's string
/// for objects that come and go.
struct Endpoint
{
    const char* service;
    const char* path;
    const char* interface;
};

} // namespace DbusHelper
