#pragma once

#include "capture/AutoLogCapture.h"
#include "capture/PhotoTalkCapture.h"
#include "capture/ScreenshotCapture.h"
#include "capture/SnapshotCapture.h"
#include "capture/VideoCapture.h"
#include "capture/VideoPlayback.h"
#include "clients/jobs/JobsManager.h"
#include "clients/settings/SettingsDaemonDbusHandler.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "daemon/ControllerDbusListener.h"
#include "dbus_helper/DbusServer.h"
#include "device/DeviceManager.h"
#include "time/TimeManager.h"

#include <systemd/sd-event.h>

#include <cstdint>
#include <memory>

namespace ControllerDaemon
{

/// The daemon's one service object: "/com/tavilon/common/Controller1" of service "com.tavilon.common.Controller1" on
/// the user bus. Owns the clients of the sibling daemons and a manager per concern, wires the siblings' signals to the
/// managers, and registers every member of "com.tavilon.common.Controller1.Control". Loop thread only.
class Controller : public DbusHelper::DbusServer
{
  public:
    /// Builds everything and brings the object up on the bus. A part that cannot come up is logged, and the daemon runs
    /// with the others.
    Controller(ControllerDbusListener& listener, sd_event* event);
    ~Controller() override;
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;
    Controller(Controller&&) = delete;
    Controller& operator=(Controller&&) = delete;

    /// Hands the server's connection to the managers that emit signals, and applies what the settings daemon keeps for
    /// the devices. Negative when a setting could not be read.
    [[nodiscard]] int32_t Start();

  private:
    /// Gives the server's connection to the managers that emit signals; null when it is not up, or not any more.
    void HandOutBus();
    void FollowSiblings();
    void RegisterMembers();

    [[maybe_unused]] ControllerDbusListener& listener_; // whose connection lives at least as long
    Videod::VideoDaemonDbusHandler video_;
    libjobsdaemon::JobsManager jobs_;
    Storaged::StorageDaemonDbusHandler storage_;
    std::shared_ptr<SnapshotCapture> snapshotCapture_;
    std::shared_ptr<ScreenshotCapture> screenshotCapture_;
    std::shared_ptr<VideoCapture> videoCapture_;
    std::shared_ptr<VideoPlayback> videoPlayback_;
    std::shared_ptr<PhotoTalkCapture> photoTalkCapture_;
    std::shared_ptr<AutoLogCapture> autoLogCapture_;
    std::shared_ptr<TimeManager> timeManager_;
    std::shared_ptr<DeviceManager> deviceManager_;
    Settingsd::SettingsHandler settings_;
    sd_event* event_;
};

} // namespace ControllerDaemon
