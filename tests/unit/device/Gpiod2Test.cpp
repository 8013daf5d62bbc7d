// The calls of libgpiod 1 that the controller makes, put into those of libgpiod 2, whose functions are replaced here.

#include "device/Gpiod.h"

#include <gtest/gtest.h>

#include <string>

struct gpiod_chip
{
    std::string path;
};
struct gpiod_line_info
{};
struct gpiod_line_settings
{
    gpiod_line_direction direction = GPIOD_LINE_DIRECTION_AS_IS;
    gpiod_line_value value = GPIOD_LINE_VALUE_INACTIVE;
};
struct gpiod_line_config
{
    gpiod_line_settings settings;
    unsigned int offset = 0;
};
struct gpiod_request_config
{
    std::string consumer;
};
struct gpiod_line_request
{
    std::string consumer;
    gpiod_line_config config;
};

namespace
{

constexpr unsigned int lines = 24;
gpiod_chip chip;
bool busy = false;
int result = 0;    // of setting a line
int requested = 0; // lines that are had
gpiod_line_request last;

class Gpiod2Test : public testing::Test
{
  protected:
    void SetUp() override
    {
        busy = false;
        result = requested = 0;
        last = {};
    }
};

} // namespace

extern "C" {
gpiod_chip* gpiod_chip_open(const char* path)
{
    chip.path = path;
    return path == std::string("/dev/gpiochip4") ? &chip : nullptr;
}
gpiod_line_info* gpiod_chip_get_line_info(gpiod_chip* /*of*/, unsigned int offset)
{
    return offset < lines ? new gpiod_line_info : nullptr;
}
void gpiod_line_info_free(gpiod_line_info* info) { delete info; }
gpiod_line_settings* gpiod_line_settings_new() { return new gpiod_line_settings; }
void gpiod_line_settings_free(gpiod_line_settings* settings) { delete settings; }
int gpiod_line_settings_set_direction(gpiod_line_settings* settings, gpiod_line_direction direction)
{
    settings->direction = direction;
    return 0;
}
int gpiod_line_settings_set_output_value(gpiod_line_settings* settings, gpiod_line_value value)
{
    settings->value = value;
    return 0;
}
gpiod_line_config* gpiod_line_config_new() { return new gpiod_line_config; }
void gpiod_line_config_free(gpiod_line_config* config) { delete config; }
int gpiod_line_config_add_line_settings(gpiod_line_config* config, const unsigned int* offsets, size_t count,
                                        gpiod_line_settings* settings)
{
    config->settings = *settings;
    config->offset = offsets[0];
    return count == 1 ? 0 : -1;
}
gpiod_request_config* gpiod_request_config_new() { return new gpiod_request_config; }
void gpiod_request_config_free(gpiod_request_config* config) { delete config; }
void gpiod_request_config_set_consumer(gpiod_request_config* config, const char* consumer)
{
    config->consumer = consumer;
}
gpiod_line_request* gpiod_chip_request_lines(gpiod_chip* /*of*/, gpiod_request_config* request,
                                             gpiod_line_config* config)
{
    if (busy)
    {
        return nullptr;
    }
    ++requested;
    last = {request->consumer, *config};
    return &last;
}
void gpiod_line_request_release(gpiod_line_request* /*request*/) { --requested; }
int gpiod_line_request_set_value(gpiod_line_request* request, unsigned int offset, gpiod_line_value value)
{
    EXPECT_EQ(offset, request->config.offset);
    request->config.settings.value = value;
    return result;
}
gpiod_line_value gpiod_line_request_get_value(gpiod_line_request* request, unsigned int offset)
{
    EXPECT_EQ(offset, request->config.offset);
    return result < 0 ? GPIOD_LINE_VALUE_ERROR : request->config.settings.value;
}
}

TEST_F(Gpiod2Test, OpensTheChipOfTheNameAndItsLines)
{
    EXPECT_EQ(gpiod_chip_open_by_name("gpiochip7"), nullptr);
    ASSERT_EQ(gpiod_chip_open_by_name("gpiochip4"), &chip);
    EXPECT_NE(gpiod_chip_get_line(&chip, lines - 1), nullptr);
    EXPECT_EQ(gpiod_chip_get_line(&chip, lines), nullptr);
}

TEST_F(Gpiod2Test, GivesOneLineForAllThatLookItUp)
{
    gpiod_chip other;
    gpiod_line* line = gpiod_chip_get_line(&chip, 5);
    EXPECT_EQ(gpiod_chip_get_line(&chip, 5), line);
    EXPECT_NE(gpiod_chip_get_line(&chip, 6), line);
    EXPECT_NE(gpiod_chip_get_line(&other, 5), line);
}

TEST_F(Gpiod2Test, KeepsALineThatIsAskedForAgain)
{
    gpiod_line* line = gpiod_chip_get_line(&chip, 5);
    ASSERT_EQ(gpiod_line_request_output(line, "controller", 1), 0);
    busy = true; // by this very request
    EXPECT_EQ(gpiod_line_request_output(gpiod_chip_get_line(&chip, 5), "controller", 0), -1);
    EXPECT_EQ(gpiod_line_get_value(line), 1);
    gpiod_line_release(line);
    EXPECT_EQ(requested, 0);
}

TEST_F(Gpiod2Test, TakesALineAsAnOutputWithItsValue)
{
    for (const int value : {0, 1})
    {
        gpiod_line* line = gpiod_chip_get_line(&chip, 5);
        ASSERT_EQ(gpiod_line_request_output(line, "controller", value), 0);
        EXPECT_EQ(last.consumer, "controller");
        EXPECT_EQ(last.config.offset, 5U);
        EXPECT_EQ(last.config.settings.direction, GPIOD_LINE_DIRECTION_OUTPUT);
        EXPECT_EQ(gpiod_line_get_value(line), value);
        EXPECT_EQ(gpiod_line_set_value(line, 1 - value), 0);
        EXPECT_EQ(gpiod_line_get_value(line), 1 - value);
        gpiod_line_release(line);
        EXPECT_EQ(requested, 0);
    }
}

TEST_F(Gpiod2Test, TellsWhatFails)
{
    gpiod_line* line = gpiod_chip_get_line(&chip, 5);
    busy = true;
    EXPECT_EQ(gpiod_line_request_output(line, "controller", 1), -1);
    gpiod_line_release(line); // as what was never had
    EXPECT_EQ(requested, 0);
    busy = false;
    ASSERT_EQ(gpiod_line_request_output(line, "controller", 1), 0);
    result = -1;
    EXPECT_EQ(gpiod_line_set_value(line, 0), -1);
    EXPECT_EQ(gpiod_line_get_value(line), -1);
}
