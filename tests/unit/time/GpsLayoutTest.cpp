// Whether gpsd's structure is laid out here as in the libgps that is linked: it holds moments, whose length is the
// choice of whoever builds.  No gpsd runs: its shared memory is imitated, with the same byte everywhere, so that it is
// whole wherever libgps looks for its ends.

#include <gps.h>
#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace
{

constexpr size_t segmentBytes = 1U << 20;
constexpr unsigned char exported = 0x55;
constexpr unsigned char untouched = 0xaa;

/// A segment of its own key, which it tells libgps; ends with it.
class Segment
{
  public:
    Segment()
    {
        const key_t key = 0x43430000 + getpid();
        id_ = shmget(key, segmentBytes, IPC_CREAT | IPC_EXCL | 0600);
        setenv("GPSD_SHM_KEY", std::to_string(key).c_str(), 1);
        if (void* memory = shmat(id_, nullptr, 0); memory != reinterpret_cast<void*>(-1))
        {
            std::memset(memory, exported, segmentBytes);
            shmdt(memory);
        }
    }
    ~Segment() { shmctl(id_, IPC_RMID, nullptr); }
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;
    [[nodiscard]] int Id() const { return id_; }

  private:
    int id_ = -1;
};

/// The structure, and room behind it for one that is larger.
union Room
{
    gps_data_t data;
    std::array<unsigned char, 4 * sizeof(gps_data_t)> bytes;
};

} // namespace

TEST(GpsLayoutTest, IsThatOfTheLibrary)
{
    const auto memory = std::make_unique<Room>();
    Room& room = *memory;
    {
        const Segment segment;
        ASSERT_GE(segment.Id(), 0) << std::strerror(errno);
        room.bytes.fill(untouched);
        ASSERT_EQ(gps_open(GPSD_SHARED_MEMORY, nullptr, &room.data), 0);
        ASSERT_EQ(gps_read(&room.data, nullptr, 0), static_cast<int>(sizeof(gps_data_t)));
    }
    // What it has written, too, ends with the structure.
    const auto end = std::find_if(room.bytes.rbegin(), room.bytes.rend(), [](auto byte) { return byte != untouched; });
    EXPECT_EQ(static_cast<size_t>(room.bytes.rend() - end), sizeof(gps_data_t));
    gps_close(&room.data);
}
