#pragma once

#include "controllerctl/Siblings.h"
#include "controllerctl/Verb.h"

namespace ControllerCtl
{

/// The kind of recording of that name.
[[nodiscard]] const KindOfRecording& RecordingNamed(const std::string& name);

/// The file that is being recorded, empty when there is none or nobody tells.
[[nodiscard]] std::string FileOf(const KindOfRecording& kind);

/// Adds to the refusal of a stop that nothing is being recorded, where that is so.
void ExplainRefusal(Answer& answer, const KindOfRecording& kind);

/// Shows a recording until it ends, by itself or, with `stop`, when the user interrupts.
[[nodiscard]] Answer FollowRecording(const KindOfRecording& kind, bool json, const std::function<Answer()>& stop);

} // namespace ControllerCtl
