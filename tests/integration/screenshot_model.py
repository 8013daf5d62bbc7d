"""An independent model of a screenshot: the lines that it leaves in the log, and what its file shows."""

from virtual_unit.framebuffers import INTERFACE, VIDEO

ERROR, INFO = 3, 6
CLASS = "ControllerDaemon::ScreenshotCapture::"
SCREENSHOT = f"static DbusHelper::CaptureErrorCode {CLASS}Screenshot(const std::string&)"
GET_DATA = (f"static int {CLASS}get_framebuffer_data(const std::string&, ControllerDaemon::PixelBuffer&, uint32_t&, "
            "uint32_t&, uint32_t&, uint32_t&)")
READ_PIXELS = (f"static int {CLASS}read_framebuffer_pixels(uint8_t*, int, const fb_var_screeninfo&, uint32_t, "
               "uint32_t)")
DO_SCREENSHOT = f"static int {CLASS}do_screenshot(const std::string&)"
WRITE_PNG = f"static int {CLASS}write_PNG(const uint8_t*, const std::string&, uint32_t, uint32_t, int32_t, uint32_t)"

MESSAGES = {0: "Ran successfully", -1: "Unknown error"}

NO_DATA = (ERROR, f"{DO_SCREENSHOT} get_framebuffer_data failed")
NO_OPEN = [(ERROR, f"{GET_DATA} open failed"), NO_DATA]
NO_IOCTL = [(ERROR, f"{GET_DATA} ioctl failed"), NO_DATA]
NO_READ = [(ERROR, f"{READ_PIXELS} read failed"), (ERROR, f"{GET_DATA} fread_framebuffer_pixels failed"), NO_DATA]
NO_MEMORY = [(ERROR, f"{GET_DATA} malloc failed"), NO_DATA]
NO_MATCH = [(ERROR, f"{DO_SCREENSHOT} framebuffers don't match")]
NO_RGB = [(ERROR, f"{DO_SCREENSHOT} framebuffers aren't of RGB / RGBA types")]
NO_FILE = [(ERROR, f"{WRITE_PNG} png_image_write_to_file failed"), (ERROR, f"{DO_SCREENSHOT} write_PNG failed")]


def geometry(device, width, height, pixel):
    """The five lines of a layer that was read."""
    padding = -width * pixel % 4
    return [(INFO, f"/dev/fb{device}\n"), (INFO, f"width: {width}\n"), (INFO, f"padding bytes: {padding}\n"),
            (INFO, f"height: {height}\n"), (INFO, f"bytes per pixel: {pixel}\n")]


def both_layers(width, height):
    """The lines of two layers that fit each other."""
    return geometry(VIDEO, width, height, 3) + geometry(INTERFACE, width, height, 4)


def done(path, lines):
    """All lines of a screenshot that succeeds."""
    return [(INFO, f"{SCREENSHOT} Screenshot Filepath {path}"), *lines, (INFO, f"{SCREENSHOT} Stopped screenshot"),
            (INFO, "[CaptureError::ErrorReason] Ran successfully")]


def failed(path, lines):
    """All lines of a screenshot that fails."""
    return [(INFO, f"{SCREENSHOT} Screenshot Filepath {path}"), *lines,
            (ERROR, f"{SCREENSHOT} Failed to generate screenshot"),
            (ERROR, "[CaptureError::ErrorReason] Unknown error")]


def rows_of(pixels, width, height, pixel):
    """The rows of a picture as lists of tuples."""
    single = [tuple(pixels[start:start + pixel]) for start in range(0, width * height * pixel, pixel)]
    return [single[y * width:(y + 1) * width] for y in range(height)]


def mirrored(rows):
    """The video layer as it comes out: each row of the upper half changes places with one of the lower half, counted
    one row too far, so that a black row comes in at the top and the first row leaves."""
    result = [*rows, [(0, 0, 0)] * len(rows[0])]
    height = len(rows)
    for i in range(height // 2):
        result[i], result[height - i] = result[height - i], result[i]
    return result[:height]


def blended(video, interface):
    """One pixel of the two layers."""
    alpha = interface[3]
    return tuple((top * alpha + (255 - alpha) * bottom) // 255 for top, bottom in zip(interface, video))


def screen(width, height, video, interface):
    """The rows of what the file must show, as (red, green, blue)."""
    top = rows_of(interface, width, height, 4)
    bottom = mirrored(rows_of(video, width, height, 3))
    return [[blended(*pair)[::-1] for pair in zip(*rows)] for rows in zip(bottom, top)]
