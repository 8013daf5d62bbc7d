#pragma once

#include "dbus_helper/Log.h"
#include "dbus_helper/PropertyMap.h"

namespace Settingsd
{

/// Visits the changed settings of a section in the order of their names. `text` is the follower's signature text, which
/// is logged first; each name is logged before it is visited, also one that nobody knows.
template <typename Visitor>
void VisitChanges(const char* text, const sdbus_utils::TypedPropertyMap& settings, const Visitor& visit)
{
    Log::Info("%s", text);
    for (const auto& setting : settings)
    {
        Log::Info("name: %s", setting.first.c_str());
        visit(setting);
    }
}

} // namespace Settingsd
