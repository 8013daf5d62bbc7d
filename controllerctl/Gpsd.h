#pragma once

namespace ControllerCtl
{

/// Whether a receiver's fixes are to be had, as the controller takes them: from the memory that gpsd shares.
[[nodiscard]] bool IsGpsdThere();

} // namespace ControllerCtl
