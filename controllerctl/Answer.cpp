#include "controllerctl/Answer.h"

#include "controller_client/ControllerFailure.h"

#include <cstring>
#include <iostream>

namespace ControllerCtl
{
namespace
{

using FailureKind = Controllerd::ControllerFailure::Kind;

struct Ending
{
    ExitStatus status;
    const char* words;
};

Ending EndingOf(FailureKind kind)
{
    switch (kind)
    {
    case FailureKind::Invalid:
        return {ExitStatus::Usage, "an argument cannot be sent, texts and file names must be UTF-8"};
    case FailureKind::Unreachable:
        return {ExitStatus::Unreachable, "the controller cannot be reached"};
    case FailureKind::Silent:
        return {ExitStatus::TimeOut, "the controller did not answer"};
    case FailureKind::Unreadable:
        return {ExitStatus::Refused, "the controller gave another answer than its interface has"};
    case FailureKind::None:
    case FailureKind::Refused:
        break;
    }
    return {ExitStatus::Refused, "refused"};
}

Answer Failure(ExitStatus status, const Json& code, const std::string& message, const std::string& told)
{
    return {.status = status, .text = {}, .fields = {{"code", code}, {"message", message}}, .messages = {told}};
}

bool Write(const std::string& text)
{
    std::cout << text << std::flush;
    if (!std::cout)
    {
        TellMessage("cannot write to standard output");
    }
    return static_cast<bool>(std::cout);
}

} // namespace

Answer Failed(ExitStatus status, const std::string& message) { return Failure(status, nullptr, message, message); }

Answer Failed()
{
    const auto failure = Controllerd::ControllerFailure::Last();
    const Ending ending = EndingOf(failure.kind);
    return Failure(ending.status, nullptr, failure.message, std::string(ending.words) + ": " + failure.message);
}

Answer Ordered(int result) { return result < 0 ? Failed() : Answer{}; }

Answer Coded(int result, int code, const std::string& message, Answer done)
{
    if (result < 0)
    {
        return Failed();
    }
    if (code != 0)
    {
        return Failure(ExitStatus::Refused, code, message, "refused with " + std::to_string(code) + ": " + message);
    }
    done.fields["code"] = code;
    done.fields["message"] = message;
    return done;
}

Answer BusIsGone(int result)
{
    return Failed(ExitStatus::Unreachable, std::string("the bus cannot be reached: ") + std::strerror(-result));
}

bool TellAnswer(const Answer& answer, bool json)
{
    for (const std::string& message : answer.messages)
    {
        TellMessage(message);
    }
    if (answer.fields.is_null() || answer.status == ExitStatus::Usage)
    {
        return true;
    }
    Json object = {{"ok", answer.status == ExitStatus::Done}, {"exit", static_cast<int>(answer.status)}};
    object.update(answer.fields);
    const std::string line = json ? OneLine(object) : answer.text;
    return line.empty() || TellLine(line);
}

int Tell(const Answer& answer, bool json)
{
    return static_cast<int>(TellAnswer(answer, json) ? answer.status : ExitStatus::Refused);
}

bool TellLine(const std::string& line) { return Write(line + '\n'); }

bool TellInPlace(const std::string& line)
{
    constexpr const char* fromTheBegin = "\r\x1b[K";
    return Write(fromTheBegin + line);
}

void TellMessage(const std::string& message) { std::cerr << "controllerctl: " << message << '\n'; }

std::string OneLine(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

} // namespace ControllerCtl
