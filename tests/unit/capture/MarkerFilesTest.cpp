#include "capture/MarkerFiles.h"

#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h> // says by what name programs call it
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

namespace
{

/// A FAT filesystem as the kernel answers for one, where a test asks for it; the real kernel otherwise.
struct FatStandIn
{
    uint32_t attributes = 0x20;
    bool readFails = false;
    bool writeFails = false;
    bool closesDescriptor = false;
};
std::optional<FatStandIn> fat;
std::optional<long> filesystemType;

constexpr unsigned long fatGetAttributes = 0x80047210;
constexpr unsigned long fatSetAttributes = 0x40047211;

int AnswerAsFat(int descriptor, unsigned long request, uint32_t* attributes)
{
    if (request == fatGetAttributes && !fat->readFails)
    {
        *attributes = fat->attributes;
        return 0;
    }
    if (request == fatSetAttributes && !fat->writeFails)
    {
        fat->attributes = *attributes;
        if (fat->closesDescriptor)
        {
            close(descriptor);
        }
        return 0;
    }
    errno = EIO;
    return -1;
}

} // namespace

// NOLINTBEGIN: the C library's own names
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (fat.has_value())
    {
        return AnswerAsFat(descriptor, request, static_cast<uint32_t*>(argument));
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

extern "C" int statfs64(const char* path, struct statfs64* status) noexcept
{
#ifdef SYS_statfs64
    const int result = static_cast<int>(syscall(SYS_statfs64, path, sizeof *status, status));
#else
    const int result = static_cast<int>(syscall(SYS_statfs, path, status));
#endif
    if (result == 0 && filesystemType.has_value())
    {
        status->f_type = *filesystemType;
    }
    return result;
}
// NOLINTEND

namespace
{

using namespace ControllerDaemon;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Line = SyslogCapture::Line;

class MarkerFiles : public testing::Test
{
  protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/ccu-markers-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        folder_ = pattern;
        fat.reset();
        filesystemType.reset();
        SyslogCapture::Take();
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    [[nodiscard]] std::string Path(const std::string& name) const { return folder_ + "/" + name; }

    std::string Create(const std::string& name, const std::string& contents = {})
    {
        std::ofstream(Path(name)) << contents;
        return Path(name);
    }

    static mode_t Mode(const std::string& path)
    {
        struct stat status
        {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    std::string folder_;
};

TEST(MarkerPaths, StandBesideTheMediaFile)
{
    EXPECT_EQ(RecActivePath("/m/j/0042.mp4"), "/m/j/.0042-recActive");
    EXPECT_EQ(RecoveryPath("/m/j/0042.mp4"), "/m/j/.0042-recovery");
    EXPECT_EQ(RecActivePath("/m/j/0042-autolog.mp4"), "/m/j/.0042-autolog-recActive");
    EXPECT_EQ(RecActivePath("/m/a b/0.0.mp4"), "/m/a b/.0.0-recActive");
    EXPECT_EQ(RecActivePath("0042"), ".0042-recActive");
}

TEST(MarkerPaths, AnEmptyPathGivesAnEmptyMarker)
{
    EXPECT_EQ(RecActivePath(""), "");
    EXPECT_EQ(RecoveryPath(""), "");
}

TEST_F(MarkerFiles, AreCreatedHiddenByTheirDotWhereTheFilesystemIsNotFat)
{
    EXPECT_FALSE(CreateHiddenFile(Path(".marker"), true));
    EXPECT_EQ(Mode(Path(".marker")), 0300);
    EXPECT_FALSE(CreateHiddenFile(Path(".other"), false));
    EXPECT_EQ(Mode(Path(".other")), 0200);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(MarkerFiles, AreTruncatedWhenTheyExist)
{
    const std::string path = Create(".marker", "left over");
    CreateHiddenFile(path, true);
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

TEST_F(MarkerFiles, GetTheHiddenAttributeOnFatAndKeepTheOthers)
{
    fat.emplace();
    EXPECT_TRUE(CreateHiddenFile(Path(".marker"), true));
    EXPECT_EQ(fat->attributes, 0x22U);
    fat->attributes = 0x21;
    EXPECT_TRUE(MakeHidden(Create("file")));
    EXPECT_EQ(fat->attributes, 0x23U);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(MarkerFiles, CreatingFailsQuietly)
{
    EXPECT_FALSE(CreateHiddenFile(Path("missing/.marker"), true));
    fat = FatStandIn{.writeFails = true};
    EXPECT_FALSE(CreateHiddenFile(Path(".unwritten"), true));
    fat = FatStandIn{.closesDescriptor = true};
    EXPECT_FALSE(CreateHiddenFile(Path(".unclosed"), true));
    EXPECT_TRUE(std::filesystem::exists(Path(".unwritten")));
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

/// What may stand in a marker's place, and the file that a link leads to.
class InTheWay : public MarkerFiles
{
  protected:
    void SetUp() override
    {
        MarkerFiles::SetUp();
        fat.emplace();
        target_ = Create("target", "kept");
        ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
        std::filesystem::create_symlink(target_, Path("link"));
        std::filesystem::create_symlink(Path("new"), Path("nowhere"));
        std::filesystem::create_symlink("loop", Path("loop"));
        std::filesystem::create_directory(Path("folder"));
    }

    static constexpr const char* names[] = {"pipe", "link", "nowhere", "loop", "folder"};
    std::string target_;
};

TEST_F(InTheWay, NothingButAFileIsEmptiedOrHidden)
{
    for (const char* name : names)
    {
        EXPECT_FALSE(CreateHiddenFile(Path(name), true)) << name;
    }
    EXPECT_EQ(std::filesystem::file_size(target_), 4U);
    EXPECT_FALSE(std::filesystem::exists(Path("new")));
    EXPECT_EQ(fat->attributes, 0x20U);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(InTheWay, MakeHiddenCannotOpenIt)
{
    std::vector<Line> lines;
    for (const char* name : names)
    {
        EXPECT_FALSE(MakeHidden(Path(name))) << name;
        lines.push_back({LOG_ERR, "MakeHidden: Failed to open file - " + Path(name)});
    }
    EXPECT_EQ(fat->attributes, 0x20U);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAreArray(lines));
}

/// A terminal's line: its other end sees a hang-up once somebody has opened and closed it.
TEST_F(InTheWay, ADeviceIsNotEvenOpened)
{
    const int other = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(other, 0);
    ASSERT_EQ(unlockpt(other), 0);
    const std::string device = ptsname(other);
    EXPECT_FALSE(CreateHiddenFile(device, true));
    EXPECT_FALSE(MakeHidden(device));
    pollfd state{.fd = other, .events = 0, .revents = 0};
    EXPECT_EQ(poll(&state, 1, 0), 0);
    close(open(device.c_str(), O_RDWR | O_NOCTTY));
    EXPECT_EQ(poll(&state, 1, 0), 1) << "that is how it would look";
    EXPECT_EQ(fat->attributes, 0x20U);
    close(other);
}

TEST_F(MarkerFiles, MakeHiddenTellsEachFailure)
{
    EXPECT_FALSE(MakeHidden(Path("missing")));
    EXPECT_FALSE(MakeHidden(Create("plain")));
    fat = FatStandIn{.writeFails = true};
    EXPECT_FALSE(MakeHidden(Create("unwritten")));
    fat = FatStandIn{.closesDescriptor = true};
    EXPECT_FALSE(MakeHidden(Create("unclosed")));
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "MakeHidden: Failed to open file - " + Path("missing")},
                            Line{LOG_ERR, "MakeHidden: Failed to read FAT attributes - " + Path("plain")},
                            Line{LOG_INFO, "CheckHidden: Failed to write FAT attributes - " + Path("unwritten")},
                            Line{LOG_ERR, "CheckHidden: Failed to close file - " + Path("unclosed")}));
}

TEST_F(MarkerFiles, RemovingTakesTheMarkerOfTheMediaFile)
{
    const std::string marker = Create(".0042-recActive");
    const std::string recovery = Create(".0042-recovery");
    EXPECT_EQ(RemoveRecActiveFile(Path("0042.mp4")), 0);
    EXPECT_FALSE(std::filesystem::exists(marker));
    EXPECT_TRUE(std::filesystem::exists(recovery));
    EXPECT_EQ(RemoveRecoveryFile(Path("0042.mp4")), 0);
    EXPECT_FALSE(std::filesystem::exists(recovery));
}

TEST_F(MarkerFiles, RemovingAMissingMarkerIsNoError)
{
    EXPECT_EQ(RemoveRecActiveFile(Path("0042.mp4")), 0);
    EXPECT_EQ(RemoveRecoveryFile(Path("0042.mp4")), 0);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(MarkerFiles, RemovingTellsWhatItCouldNotRemove)
{
    for (const char* marker : {".0042-recActive", ".0042-recovery"})
    {
        std::filesystem::create_directories(Path(marker) + "/full");
    }
    EXPECT_NE(RemoveRecActiveFile(Path("0042.mp4")), 0);
    EXPECT_NE(RemoveRecoveryFile(Path("0042.mp4")), 0);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "int RemoveRecActiveFile(std::__cxx11::string&) Filesystem error attempting "
                                          "to remove recActive file " +
                                              Path(".0042-recActive")},
                            Line{LOG_ERR, "int RemoveRecoveryFile(std::__cxx11::string&) Filesystem error attempting "
                                          "to remove recovery file " +
                                              Path(".0042-recovery")}));
}

TEST_F(MarkerFiles, ExistenceIsToldWithoutThrowing)
{
    EXPECT_TRUE(TryFsExists(folder_));
    EXPECT_FALSE(TryFsExists(Path("missing")));
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
    const std::string tooLong = Path(std::string(4000, '%'));
    EXPECT_FALSE(TryFsExists(tooLong));
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "TryFsExists - Filesystem error checking for existence of " + tooLong + ": " +
                                              std::strerror(ENAMETOOLONG) + ".\n"}));
}

TEST_F(MarkerFiles, FatIsToldByTheFilesystemsType)
{
    filesystemType = 0x4D44;
    EXPECT_TRUE(IsFat(folder_));
    EXPECT_FALSE(IsFat(Path("missing")));
    filesystemType = 0xEF53;
    EXPECT_FALSE(IsFat(folder_));
}

} // namespace
