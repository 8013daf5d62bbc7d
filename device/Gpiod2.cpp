#include "device/Gpiod.h"

#ifdef CCU_GPIOD_2

#include <map>
#include <memory>
#include <string>
#include <utility>

struct gpiod_line
{
    gpiod_chip* chip;
    unsigned int offset;
    gpiod_line_request* request;
};

namespace
{

struct Release
{
    void operator()(gpiod_line_info* info) const { gpiod_line_info_free(info); }
    void operator()(gpiod_line_settings* settings) const { gpiod_line_settings_free(settings); }
    void operator()(gpiod_line_config* config) const { gpiod_line_config_free(config); }
    void operator()(gpiod_request_config* config) const { gpiod_request_config_free(config); }
};
template <typename T>
using Handle = std::unique_ptr<T, Release>;

gpiod_line_value Value(int value) { return value != 0 ? GPIOD_LINE_VALUE_ACTIVE : GPIOD_LINE_VALUE_INACTIVE; }

} // namespace

gpiod_chip* gpiod_chip_open_by_name(const char* name) { return gpiod_chip_open((std::string("/dev/") + name).c_str()); }

gpiod_line* gpiod_chip_get_line(gpiod_chip* chip, unsigned int offset)
{
    static std::map<std::pair<gpiod_chip*, unsigned int>, gpiod_line> lines;
    const Handle<gpiod_line_info> info(gpiod_chip_get_line_info(chip, offset));
    return info == nullptr ? nullptr
                           : &lines.try_emplace({chip, offset}, gpiod_line{chip, offset, nullptr}).first->second;
}

int gpiod_line_request_output(gpiod_line* line, const char* consumer, int value)
{
    const Handle<gpiod_line_settings> settings(gpiod_line_settings_new());
    const Handle<gpiod_line_config> lines(gpiod_line_config_new());
    const Handle<gpiod_request_config> request(gpiod_request_config_new());
    if (settings == nullptr || lines == nullptr || request == nullptr ||
        gpiod_line_settings_set_direction(settings.get(), GPIOD_LINE_DIRECTION_OUTPUT) < 0 ||
        gpiod_line_settings_set_output_value(settings.get(), Value(value)) < 0 ||
        gpiod_line_config_add_line_settings(lines.get(), &line->offset, 1, settings.get()) < 0)
    {
        return -1;
    }
    gpiod_request_config_set_consumer(request.get(), consumer);
    gpiod_line_request* made = gpiod_chip_request_lines(line->chip, request.get(), lines.get());
    if (made == nullptr)
    {
        return -1;
    }
    line->request = made;
    return 0;
}

void gpiod_line_release(gpiod_line* line)
{
    if (line->request != nullptr)
    {
        gpiod_line_request_release(line->request);
        line->request = nullptr;
    }
}

int gpiod_line_set_value(gpiod_line* line, int value)
{
    return gpiod_line_request_set_value(line->request, line->offset, Value(value));
}

int gpiod_line_get_value(gpiod_line* line)
{
    return static_cast<int>(gpiod_line_request_get_value(line->request, line->offset));
}

#endif
