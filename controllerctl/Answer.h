#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace ControllerCtl
{

/// Keeps the fields of an object in the order in which they are told.
using Json = nlohmann::ordered_json;

/// Whether the value is a text with nothing in it; null is none.
[[nodiscard]] inline bool IsBlank(const Json& value)
{
    return value.is_string() && value.get_ref<const std::string&>().empty();
}

enum class ExitStatus : int
{
    Done = 0,
    Refused = 1, ///< by the controller: with a code, or with a D-Bus error
    Usage = 2,
    Unreachable = 3, ///< no bus, or no controller on it
    TimeOut = 4,
};

/// What a verb has come to.
struct Answer
{
    ExitStatus status = ExitStatus::Done;
    std::string text = {};                  ///< for standard output, without the last newline
    Json fields = Json::object();           ///< the same for --json; null when all has been told
    std::vector<std::string> messages = {}; ///< for standard error
};

/// What has come to nothing for another reason than the controller's.
[[nodiscard]] Answer Failed(ExitStatus status, const std::string& message);

/// What the last operation of the client library has come to when it did not get through.
[[nodiscard]] Answer Failed();

/// What an operation that answers nothing has come to, by its result.
[[nodiscard]] Answer Ordered(int result);

/// What an operation that answers with a code and a message has come to; `done` is told if it succeeded.
[[nodiscard]] Answer Coded(int result, int code, const std::string& message, Answer done = {});

/// What has come to nothing for want of a bus, by what the bus library has said of it.
[[nodiscard]] Answer BusIsGone(int result);

/// Tells what a verb has come to; false when it cannot be written.
[[nodiscard]] bool TellAnswer(const Answer& answer, bool json);
/// The same as the program's last words; returns its exit status.
[[nodiscard]] int Tell(const Answer& answer, bool json);

/// Writes one line to standard output at once; false, with a message, when it cannot be written.
[[nodiscard]] bool TellLine(const std::string& line);
/// Writes one line in the place of the one that was written so before; false as `TellLine`.
[[nodiscard]] bool TellInPlace(const std::string& line);
/// Writes one message to standard error.
void TellMessage(const std::string& message);

/// The text of a JSON value in one line; bytes that are no UTF-8 are replaced.
[[nodiscard]] std::string OneLine(const Json& value);

} // namespace ControllerCtl
