#include "clients/sync/SyncDaemonDbusHandler.h"

#include "clients/sync/SyncEndpoint.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"

#include <array>

namespace Syncd
{

using Handler = SyncDaemonDbusHandler;

namespace
{

using DbusHelper::Outcome;
using DbusHelper::Step;

/// By code. The blank before the colon is deliberate: support tools search for these texts.
constexpr std::array errorTexts{
    "Succeeded",
    "Failed : Source not found",
    "Failed : Destination not found",
    "Failed : Destination mounted read only",
    "Failed : Destination full",
    "Failed : Sync already exists",
    "Failed : Sync source conflict",
    "Failed : Insufficient power",
    "Failed : Insufficient space",
    "Failed : Internal error",
};
static_assert(errorTexts.size() == 10);

/// How the lines of a member's failed call differ from one another.
struct Words
{
    const char* member;
    const char* call; ///< the library's function that the line names
    const char* read; ///< what the line says of a reply that cannot be read
};

constexpr Words addSyncs{"AddSyncs", "sd_bus_call", "sd_bus_message_read failed"};
constexpr Words cancelSyncs{"CancelSyncs", "sd_bus_call_method", "sd_bus_message_read failed"};
constexpr Words cancelAllDevices{"CancelAllDevices", "sd_bus_call_method", "Error parsing reply"};

/// The line of a failed call. Returns the call's result.
int32_t Report(const Words& words, const Outcome& outcome)
{
    const char* reason = outcome.errorText.c_str();
    switch (outcome.step)
    {
    case Step::Open:
        Log::Error("SyncDaemonDbusHandler::%s: sd_bus_open_user failed r = %d", words.member, outcome.result);
        break;
    case Step::Create:
        Log::Error("SyncDaemonDbusHandler::%s: sd_bus_message_new_method_call failed r = %d, reason = %s", words.member,
                   outcome.result, reason);
        break;
    case Step::Write:
        Log::Error("SyncDaemonDbusHandler::%s: write to message failed r = %d", words.member, outcome.result);
        break;
    case Step::Call:
        Log::Error("SyncDaemonDbusHandler::%s: %s failed r = %d, reason = %s", words.member, words.call, outcome.result,
                   reason);
        break;
    case Step::Read:
        Log::Error("SyncDaemonDbusHandler::%s: %s r = %d", words.member, words.read, outcome.result);
        break;
    case Step::Done:
        break;
    }
    return outcome.result;
}

template <typename... Out, typename... In>
int32_t Call(const Words& words, std::tuple<Out&...> reply, const In&... arguments)
{
    return Report(words, DbusHelper::Call(syncDaemon, words.member, reply, arguments...));
}

void LogCode(const char* member, int32_t code)
{
    Log::Info("SyncDaemonDbusHandler::%s: Received ReturnCode = %s", member, Handler::ErrorText(code));
}

void LogStatus(const char* member, const std::string& status)
{
    Log::Info("SyncDaemonDbusHandler::%s: Received syncStatus = %s", member, status.c_str());
}

// Both reads open the user bus and name the system bus: deliberate, support tools search for these texts.
constexpr const char* openedText = "sd_bus_open_system(&bus)";

/// The library's function at which a property's read ended.
const char* FailedStep(Step step)
{
    if (step == Step::Open)
    {
        return openedText;
    }
    return step == Step::Read ? "sd_bus_message_read" : "sd_bus_get_property";
}

} // namespace

const char* Handler::ErrorText(int32_t code)
{
    const bool known = code >= 0 && static_cast<size_t>(code) < errorTexts.size();
    return known ? errorTexts[static_cast<size_t>(code)] : "Unknown error code";
}

int32_t Handler::AddSyncs(const std::string& source, const std::string& destination,
                          const std::vector<std::string>& items, int32_t& code, std::string& status)
{
    std::tuple<int32_t, std::string> answer;
    const int32_t result = Call(addSyncs, std::tie(answer), source, destination, items);
    if (result >= 0)
    {
        std::tie(code, status) = std::move(answer);
        LogCode(addSyncs.member, code);
        LogStatus(addSyncs.member, status);
    }
    return result;
}

int32_t Handler::CancelSyncs(const std::vector<std::string>& items, int32_t& code)
{
    const int32_t result = Call(cancelSyncs, std::tie(code), items);
    if (result >= 0)
    {
        LogCode(cancelSyncs.member, code);
    }
    return result;
}

int32_t Handler::CancelAllDevices(int32_t& code) { return Call(cancelAllDevices, std::tie(code)); }

int32_t Handler::HasActiveSyncs(bool& active)
{
    const Outcome outcome = DbusHelper::GetPropertyOn(nullptr, syncDaemon, "HasActiveSyncs", active);
    if (!outcome.Ok())
    {
        Log::Error("SyncDaemonDbusHandler::HasActiveSyncs: %s failed", FailedStep(outcome.step));
    }
    return outcome.result;
}

int32_t Handler::GetSyncStatus(std::string& status)
{
    constexpr const char* member = "GetSyncStatus";
    const Outcome outcome = DbusHelper::GetPropertyOn(nullptr, syncDaemon, "SyncStatus", status);
    if (outcome.Ok())
    {
        LogStatus(member, status);
    }
    else if (outcome.step == Step::Call)
    {
        Log::Error("SyncDaemonDbusHandler::%s: %s failed r = %d, message = %s", member, FailedStep(outcome.step),
                   outcome.result, outcome.errorText.c_str());
    }
    else
    {
        Log::Error("SyncDaemonDbusHandler::%s: %s failed r = %d", member, FailedStep(outcome.step), outcome.result);
    }
    return outcome.result;
}

Handler::SyncDaemonDbusHandler(sd_event* event) : listener_(event)
{
    constexpr const char* member = "PropertiesChanged";
    listener_.DefineSignals({{member, syncDaemon.service, syncDaemon.path, "org.freedesktop.DBus.Properties", member,
                              &OnPropertiesChanged}},
                            this);
}

int32_t Handler::Listen()
{
    const int32_t result = listener_.ListenSignals({"PropertiesChanged"});
    if (result < 0)
    {
        Log::Error("SyncDaemonDbusHandler: Failed to init signal listeners");
        listener_.Disconnect();
    }
    return result;
}

int Handler::OnPropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::string interface;
    int result = DbusHelper::Codec<std::string>::Read(message, interface);
    if (result < 0)
    {
        Log::Error("Failed to read interface");
        return result;
    }
    sdbus_utils::PropertyMap properties;
    result = sdbus_utils::ParseProperties(message, properties);
    if (result < 0)
    {
        Log::Error("ParseProperties failed:%d", result);
        return result;
    }
    static_cast<SyncDaemonDbusHandler*>(userData)->propertiesChanged_.emit(interface, properties);
    return 0;
}

} // namespace Syncd
