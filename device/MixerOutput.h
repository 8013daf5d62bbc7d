#pragma once

#include <string>
#include <string_view>

/// What "amixer get" prints about a control, line by line: "  Front Left: Playback 100 [79%] [-13.50dB] [on]".
namespace ControllerDaemon
{

/// Whether a line is the one of `key`: the key stands in it, with a colon right behind.
[[nodiscard]] bool IsMixerLine(std::string_view line, std::string_view key);

/// A line's text from two characters behind its first colon on, which skips the blank there; of a line without a colon,
/// from its second character on. Empty when the line ends before.
[[nodiscard]] std::string MixerText(std::string_view line);

/// Reads "Playback RAW [PERCENT%] [LEVELdB]"; false, with everything as it was, unless all three are there. `raw` is in
/// the control's own steps, `decibels` relative to its full level.
[[nodiscard]] bool ParseVolume(const std::string& text, int& raw, int& percent, float& decibels);

/// Reads "Playback MINIMUM - MAXIMUM", in the control's own steps; false, with everything as it was, unless both are
/// there.
[[nodiscard]] bool ParseLimits(const std::string& text, int& minimum, int& maximum);

} // namespace ControllerDaemon
