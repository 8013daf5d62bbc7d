#include "daemon/Controller.h"

#include "daemon/ControllerMembers.h"
#include "dbus_helper/Log.h"
#include "interfaces/ControllerEndpoint.h"

namespace ControllerDaemon
{
namespace
{

constexpr const char* constructorText =
    "ControllerDaemon::Controller::Controller(ControllerDaemon::ControllerDbusListener&, sd_event*)";

void ReportSubscription(int32_t result, const char* sibling)
{
    if (result < 0)
    {
        Log::Error("%s: Failed to register %s d-bus listener", constructorText, sibling);
    }
}

} // namespace

Controller::Controller(ControllerDbusListener& listener, sd_event* event)
    : DbusServer(controllerEndpoint.service, controllerEndpoint.path, controllerEndpoint.interface, false, false,
                 event),
      listener_(listener), video_(event), jobs_(event), storage_(event), event_(event)
{
    FollowSiblings();
    deviceManager_ = std::make_shared<DeviceManager>(event_, settings_);
    timeManager_ = std::make_shared<TimeManager>(settings_);
    autoLogCapture_ = std::make_shared<AutoLogCapture>(video_, storage_);
    videoCapture_ = std::make_shared<VideoCapture>(video_, storage_);
    videoPlayback_ = std::make_shared<VideoPlayback>(video_, storage_);
    photoTalkCapture_ = std::make_shared<PhotoTalkCapture>(video_, storage_);
    snapshotCapture_ = std::make_shared<SnapshotCapture>();
    screenshotCapture_ = std::make_shared<ScreenshotCapture>();
    RegisterMembers();
    if (DbusServer::Start() < 0)
    {
        Log::Error("Failed to DbusServer::Start();");
    }
}

Controller::~Controller()
{
    Stop();
    HandOutBus();
}

int32_t Controller::Start()
{
    HandOutBus();
    return deviceManager_->SetDefaultSettings();
}

void Controller::HandOutBus()
{
    DeviceManager::SetBus(GetBus());
    VideoCapture::SetBus(GetBus());
    VideoPlayback::SetBus(GetBus());
    PhotoTalkCapture::SetBus(GetBus());
    AutoLogCapture::SetBus(GetBus());
}

void Controller::FollowSiblings()
{
    settings_ = std::make_shared<Settingsd::SettingsDaemonDbusHandler>(event_);
    ReportSubscription(settings_->Listen(), "SettingsDaemon");
    ReportSubscription(video_.ListenSignals({"PropertiesChanged", "VideoGrew", "PhotoTalkGrew", "AutoLogGrew"}),
                       "VideoDaemon");
    // Devices that appear are no business of this daemon: it looks for them when it needs one.
    ReportSubscription(storage_.ListenSignals({"PropertiesChanged", "InterfacesRemoved"}), "StorageDaemon");
}

void Controller::RegisterMembers()
{
    using Kind = DbusHelper::Member::Kind;
    for (const DbusHelper::Member& member : ControllerMembers())
    {
        switch (member.kind)
        {
        case Kind::Method:
            AddVtableMethod(member.name, member.signature, member.reply, member.handler, member.flags,
                            member.argumentNames, member.replyNames);
            break;
        case Kind::Property:
            AddVtableProperty(member.name, member.signature, member.getter, member.setter, member.flags);
            break;
        case Kind::ReadOnlyProperty:
            AddVtablePropertyReadOnly(member.name, member.signature, member.getter, member.flags);
            break;
        case Kind::Signal:
            AddVtableSignal(member.name, member.signature, member.flags, member.argumentNames);
            break;
        }
    }
}

} // namespace ControllerDaemon
