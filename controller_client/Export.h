#pragma once

/// Marks what the shared library gives to other programs; everything else in it stays its own.
#define CONTROLLER_CLIENT_API __attribute__((visibility("default")))
