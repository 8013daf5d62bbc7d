"""The display as a person sees it, for whoever wants to show it: one function, `picture`, in any process.

    control.Subscribe()
    screens = front.Get("Screens")            # of the control object; the unit draws before it answers
    page.show(picture(screens, (640, 360)))   # the bytes of a JPEG

After that the control object's `Frames` tells each time, once, when there is another picture; read `Screens` again to
get it.  Who does not read it costs the unit nothing.
"""

import io

from PIL import Image

from .framebuffers import INTERFACE, VIDEO, screen_of, upside_down
from .picture import blend


def _layer(screens, device, mode, order):
    """A framebuffer as an image, None where there is none of that kind of pixels."""
    for *_, path in screens:
        screen = screen_of(path)
        if path.endswith(f"fb{device}") and screen is not None and screen.bits == 8 * len(mode):
            try:
                with open(path, "rb") as file:
                    pixels = screen.window(file.read())
                return Image.frombytes(mode, (screen.width, screen.height), pixels, "raw", order)
            except (OSError, ValueError):
                return None
    return None


def image(screens):
    """Both framebuffers, one over the other; what is missing is black or clear."""
    video, interface = _layer(screens, VIDEO, "RGB", "BGR"), _layer(screens, INTERFACE, "RGBA", "BGRA")
    size = (video or interface or Image.new("L", (1280, 720))).size
    seen = Image.new("RGB", size) if video is None else upside_down(video)
    return seen if interface is None or interface.size != size else blend(seen, interface)


def picture(screens, size=None, form="JPEG", quality=85):
    """What the display shows, as the bytes of a JPEG, of a PNG or, for the form "RGB", of its pixels row after row.

    screens  value of the control object's property `Screens`, just read
    size     width and height; those of the screen when None
    """
    seen = image(screens)
    if size is not None and size != seen.size:
        seen = seen.resize(size, Image.Resampling.BILINEAR)
    if form == "RGB":
        return seen.tobytes()
    file = io.BytesIO()
    seen.save(file, form, **({"quality": quality} if form == "JPEG" else {"compress_level": 1}))
    return file.getvalue()
