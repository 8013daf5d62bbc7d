#pragma once

#include "controllerctl/Verb.h"

#include <string>
#include <vector>

namespace ControllerCtl
{

/// How much what is told matters; the colour follows from it.
enum class Tone : unsigned char
{
    Plain,
    Quiet, ///< what is off, or can be passed over
    Good,
    Busy, ///< something is under way
    Warning,
    Bad,
};

/// A line that is told: what it is about, and what there is of that. One without a label goes on with the one before.
struct Row
{
    std::string label;
    std::string text;
    Tone tone = Tone::Plain;
};

/// "--color" as verbs take it.
[[nodiscard]] Parameter ColorParameter();

/// Whether standard output gets colours: as "--color" says; by itself a terminal that has them, unless $NO_COLOR is
/// set.
[[nodiscard]] bool WantsColor(const Arguments& arguments);

/// The text in the colour of its tone, where colours are wanted.
[[nodiscard]] std::string Painted(const std::string& text, Tone tone, bool color);

/// The rows with their texts one below the other, without the last newline.
[[nodiscard]] std::string Aligned(const std::vector<Row>& rows, bool color);

/// Bytes as "8.6 GB", by thousands as storage is sold.
[[nodiscard]] std::string Bytes(uint64_t bytes);

/// Seconds as "1:02:03" or "2:03".
[[nodiscard]] std::string Duration(int64_t seconds);

} // namespace ControllerCtl
