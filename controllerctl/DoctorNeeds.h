#pragma once

#include "controllerctl/Siblings.h"

#include <span>

namespace ControllerCtl
{

/// A member of a sibling that the controller uses.
struct MemberNeed
{
    SiblingIndex sibling;
    const char* path;
    const char* interface;
    const char* member;
    const char* in;  ///< types of a method's arguments; null for a property, whose type is `out`
    const char* out; ///< types of a method's answer
};

[[nodiscard]] std::span<const MemberNeed> Needs();

/// The members of the objects of storage devices, whose paths the storage daemon tells; their path is null.
[[nodiscard]] std::span<const MemberNeed> DeviceNeeds();

/// A setting that the controller reads at its start.
struct SettingNeed
{
    const char* section;
    const char* key;
    const char* type;
};

[[nodiscard]] std::span<const SettingNeed> SettingNeeds();

} // namespace ControllerCtl
