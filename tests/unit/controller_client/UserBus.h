#pragma once

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

/// A user bus that takes connections and says nothing: enough for a connection to be opened and closed.
class UserBus
{
  public:
    UserBus()
    {
        char pattern[] = "/tmp/ccu-interface-XXXXXX";
        folder_ = mkdtemp(pattern);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder_ + "/bus").copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 1), 0);
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + folder_ + "/bus").c_str(), 1);
    }
    ~UserBus()
    {
        close(listener_);
        std::filesystem::remove_all(folder_);
    }
    UserBus(const UserBus&) = delete;
    UserBus& operator=(const UserBus&) = delete;
    UserBus(UserBus&&) = delete;
    UserBus& operator=(UserBus&&) = delete;

    [[nodiscard]] int Accept() const { return accept(listener_, nullptr, nullptr); }

  private:
    std::string folder_;
    int listener_ = -1;
};
