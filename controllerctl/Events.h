#pragma once

#include "controller_client/ControllerSignals.h"
#include "controllerctl/Answer.h"
#include "controllerctl/Style.h"

#include <string>

namespace ControllerCtl
{

/// An event of the controller as JSON.
[[nodiscard]] Json FieldsOf(const Controllerd::ControllerEvent& event);

/// One line: "CaptureError code=-4 message="..."", "MicEnabled=on", "controller started".
[[nodiscard]] std::string TextOf(const Json& fields);

/// The same for a person; also of siblings.
[[nodiscard]] std::string WordsOf(const Json& fields);

/// How much it matters.
[[nodiscard]] Tone ToneOf(const Json& fields);

} // namespace ControllerCtl
