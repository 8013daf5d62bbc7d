#pragma once

#include <gpiod.h>

#ifdef CCU_GPIOD_2

// The calls of libgpiod 1 that the controller makes, for a build with libgpiod 2, which has others: results are the
// same.

/// A line of a chip, requested or not: one for all that look it up, for the life of the process.
struct gpiod_line;

[[nodiscard]] gpiod_chip* gpiod_chip_open_by_name(const char* name);
[[nodiscard]] gpiod_line* gpiod_chip_get_line(gpiod_chip* chip, unsigned int offset);
[[nodiscard]] int gpiod_line_request_output(gpiod_line* line, const char* consumer, int value);
void gpiod_line_release(gpiod_line* line);
[[nodiscard]] int gpiod_line_set_value(gpiod_line* line, int value);
[[nodiscard]] int gpiod_line_get_value(gpiod_line* line);

#endif
