#pragma once

#include "controllerctl/UnitLook.h"

#include <string>

namespace ControllerCtl
{

/// The unit's state as JSON, with the exit status and the messages that go with it. What the controller does not tell
/// is null; a controller that is absent or silent does not keep the siblings' part from being told.
[[nodiscard]] Answer StatusOf(const UnitLook& look);

/// The fields of `StatusOf` for a person, what matters most first.
[[nodiscard]] std::string StatusText(const Json& fields, bool color);

} // namespace ControllerCtl
