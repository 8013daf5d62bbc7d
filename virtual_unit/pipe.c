/*
 * What the camera in the pipe sees, loaded by `picture.py`: each pixel's ray is followed to the wall, or to the water
 * and by its reflection to the wall, and what is met there is lit by the lamps around the lens.
 *
 * The wall is made of nothing but numbers that belong to its places, so the same place looks the same whenever the
 * camera comes by.  Lengths are metres; angles are radians from straight up, clockwise.
 */
#include <math.h>
#include <stdint.h>

#define EXPORT __attribute__((visibility("default")))

/* Half of the pipe's width; the lens lies below the axis, and the water lower still. */
#define RADIUS 0.075f
#define LENS_BELOW_AXIS 0.018f
#define WATER_BELOW_AXIS 0.057f
/* A joint every so often, and half of the gap in it. */
#define PIECE 0.5f
#define HALF_GAP 0.004f
/* The focal length, in heights of the picture. */
#define FOCAL 0.62f
/* Beyond it there is no light. */
#define FARTHEST 6.0f
#define PI 3.14159265f

struct colour
{
    float red, green, blue;
};

struct view
{
    float distance;
    float light;
    float pixel; /* the width of a pixel, of what is at a distance of one */
};

static float clamped(float value, float least, float most)
{
    return value < least ? least : value > most ? most : value;
}

static float mixed(float from, float to, float part) { return from + (to - from) * part; }

static struct colour blend(struct colour from, struct colour to, float part)
{
    return (struct colour){mixed(from.red, to.red, part), mixed(from.green, to.green, part),
                           mixed(from.blue, to.blue, part)};
}

static struct colour times(struct colour colour, float factor)
{
    return (struct colour){colour.red * factor, colour.green * factor, colour.blue * factor};
}

static float eased(float part) { return part * part * (3 - 2 * part); }

static float smooth(float from, float to, float value) { return eased(clamped((value - from) / (to - from), 0, 1)); }

/* floorf, which is a call where the processor may be an old one. */
static int32_t whole(float value) { return (int32_t)value - (value < (float)(int32_t)value); }

/* A number from 0 to 1 that belongs to a place of a lattice. */
static float number_at(int32_t x, int32_t y)
{
    uint32_t bits = (uint32_t)x * 0x9E3779B1U ^ (uint32_t)y * 0x85EBCA77U;
    bits = (bits ^ bits >> 15) * 0x2C1B3C6DU;
    bits = (bits ^ bits >> 12) * 0x297A2D39U;
    return (float)((bits ^ bits >> 15) >> 8) * (1.0f / 16777216.0f);
}

/* Numbers between those of the lattice; x is from 0 to `period`, where it comes round. */
static float noise(float x, float y, int32_t period)
{
    const int32_t here = (int32_t)x;
    const int32_t next = here + 1 == period ? 0 : here + 1;
    const int32_t row = whole(y);
    const float right = eased(x - (float)here);
    const float up = eased(y - (float)row);
    return mixed(mixed(number_at(here, row), number_at(next, row), right),
                 mixed(number_at(here, row + 1), number_at(next, row + 1), right), up);
}

/* What is left of the lamps' light at the end of a ray, on a wall that it meets at a slant. */
static float lit(const struct view* view, float length, float slant)
{
    const float near = 1 / (1 + 3.4f * length);
    return view->light * 1.9f * near * near * (0.4f + 0.6f * slant / sqrtf(1 + slant * slant));
}

/* How much of a detail of a size is left where a pixel is `blur` wide. */
static float sharpness(float size, float blur) { return size / (size + blur); }

/* The wall at an angle and at a place along the pipe, of which one pixel shows `blur`. */
static struct colour wall(float angle, float along, float blur)
{
    const float turn = (angle < 0 ? angle + 2 * PI : angle) / (2 * PI);
    const int32_t piece = whole(along / PIECE);
    const float in_piece = along - (float)piece * PIECE;

    /* Each piece is of a shade of its own, clouded, grained and streaked along the flow. */
    const float clouds = noise(turn * 12, along * 9, 12) - 0.5f;
    const float grain = (noise(turn * 96, along * 150, 96) - 0.5f) * sharpness(0.007f, blur);
    const float streaks = noise(turn * 60, along * 3.1f + 40, 60) - 0.5f;
    const float shade = 1 + 0.22f * (number_at(piece, 7) - 0.5f) + 0.34f * clouds + 0.30f * grain + 0.16f * streaks;
    struct colour colour = times((struct colour){0.84f, 0.64f, 0.44f}, shade);

    /* Slime and sediment below, with an edge that wavers. */
    const float below = fabsf(angle) / PI;
    const float edge = 0.60f + 0.07f * (noise(turn * 18, along * 5, 18) - 0.5f);
    colour = blend(colour, (struct colour){0.30f, 0.27f, 0.19f}, 0.75f * smooth(edge - 0.05f, edge + 0.11f, below));

    /* Rust that has run down from the crown of some joints. */
    if (in_piece < 0.22f)
    {
        const float run = noise(turn * 40, (float)piece * 3.7f, 40);
        const float rust = smooth(0.62f, 0.85f, run) * (1 - smooth(0.02f, 0.22f, in_piece));
        colour = blend(colour, (struct colour){0.55f, 0.27f, 0.11f}, 0.6f * rust);
    }

    /* A crack along some of the pieces. */
    const float crack = 0.10f + 0.22f * number_at(piece, 2);
    if (number_at(piece, 1) > 0.55f && fabsf(turn - crack) < 0.04f)
    {
        const float course = crack + 0.035f * (noise(3, along * 14, 8) - 0.5f);
        const float width = 0.0022f + 0.0018f * noise(5, along * 60, 8);
        const float off = fabsf(turn - course);
        const float ends = smooth(0.06f, 0.16f, in_piece) * (1 - smooth(0.3f, 0.42f, in_piece));
        colour = times(colour, 1 - 0.75f * ends * (1 - smooth(width, width + 0.0035f + blur * 0.6f, off)));
    }

    /* A lateral joins some of the pieces. */
    if (number_at(piece, 3) > 0.6f)
    {
        const float side = number_at(piece, 4) > 0.5f ? 0.18f : 0.82f;
        const float across = (turn - side) * 2 * PI * RADIUS;
        const float from_middle = sqrtf(across * across + (in_piece - PIECE / 2) * (in_piece - PIECE / 2));
        const float lip = smooth(0.040f, 0.034f, from_middle) * 0.5f;
        colour = blend(colour, (struct colour){0.95f, 0.86f, 0.72f}, lip);
        colour = times(colour, 1 - 0.93f * smooth(0.035f, 0.030f - blur * 0.2f, from_middle));
    }

    /* The joint: a gap, with a bright edge behind it and dirt before it. */
    const float off = in_piece > PIECE / 2 ? in_piece - PIECE : in_piece;
    const float reach = HALF_GAP + blur;
    const float gap = HALF_GAP / reach * (1 - smooth(0.6f * reach, 1.5f * reach, fabsf(off)));
    const float bright = smooth(0.003f, 0.006f, off) * (1 - smooth(0.012f, 0.020f + blur, off));
    const float dirt = (1 - smooth(0.0f, 0.05f, -off)) * (off < 0 ? 0.28f : 0);
    colour = times(colour, (1 - dirt) * (1 + 0.35f * bright * sharpness(0.01f, blur)));
    return times(colour, 1 - 0.93f * gap);
}

/* How far along the pipe a ray meets the wall, from a place in the lens's cross-section and in a direction that is one
 * ahead. */
static float way_to_wall(float x, float y, float dx, float dy)
{
    const float a = fmaxf(dx * dx + dy * dy, 1e-9f);
    const float b = x * dx + y * dy;
    const float c = x * x + y * y - RADIUS * RADIUS;
    return (sqrtf(b * b - a * c) - b) / a;
}

/* What a ray meets there, in the light of the lamps; it has come `before` already. */
static struct colour met(const struct view* view, float x, float y, float dx, float dy, float way, float before)
{
    if (way > FARTHEST)
    {
        return (struct colour){0, 0, 0};
    }
    const float slant = fmaxf(sqrtf(dx * dx + dy * dy), 1e-4f);
    const float up = y + way * dy;
    const float wet = smooth(0.000f, 0.006f, fabsf(up + WATER_BELOW_AXIS));
    const float light = lit(view, before + way * sqrtf(1 + slant * slant), slant) * (0.45f + 0.55f * wet);
    return times(wall(atan2f(x + way * dx, up), view->distance + way, way * view->pixel * (1 + 1 / slant)), light);
}

static struct colour seen(const struct view* view, float dx, float dy)
{
    const float above_water = WATER_BELOW_AXIS - LENS_BELOW_AXIS;
    const float way = way_to_wall(0, -LENS_BELOW_AXIS, dx, dy);
    const float to_water = dy < -1e-6f ? above_water / -dy : way;
    if (to_water >= way)
    {
        return met(view, 0, -LENS_BELOW_AXIS, dx, dy, way, 0);
    }
    /* The water: ripples tilt what it reflects, and it reflects the more the flatter it is looked at. */
    const float place = view->distance + to_water;
    const float across = to_water * dx;
    const float slant = sqrtf(dx * dx + dy * dy);
    const float length = to_water * sqrtf(1 + slant * slant);
    const float calm = sharpness(0.02f, to_water * to_water * view->pixel / above_water);
    const float ripple = (noise(across * 260 + 64, place * 70, 4096) - 0.5f) * calm;
    const float waves = (noise(across * 90 + 64, place * 26 + 9, 4096) - 0.5f) * calm;
    const float light = lit(view, length, slant);
    const struct colour bed = times((struct colour){0.26f, 0.20f, 0.11f}, light * (1 + 0.5f * waves + 0.4f * ripple));
    const float rx = dx + 0.10f * ripple;
    const float ry = -dy + 0.10f * waves;
    const struct colour mirrored =
        met(view, across, -WATER_BELOW_AXIS, rx, ry, way_to_wall(across, -WATER_BELOW_AXIS, rx, ry), length);
    const float glance = clamped(1 - 1.5f * slant, 0.08f, 0.75f);
    return blend(blend(bed, mirrored, glance), (struct colour){1, 0.96f, 0.88f},
                 clamped(0.3f * light * smooth(0.42f, 0.7f, ripple + waves), 0, 1));
}

static uint8_t level(float light, float noise)
{
    const float exposed = 1 - expf(-2.9f * light);
    return (uint8_t)clamped(255 * exposed * (0.55f + 0.45f * exposed) + 4 + noise, 0, 255);
}

/* Draws the picture as rows of red, green and blue.  `distance` is where the lens is; the camera has turned clockwise
 * by `roll` and looks up by `pitch`; `light` is 1 for lamps at their half. */
EXPORT void draw_pipe(uint8_t* pixels, int width, int height, double distance, double roll, double pitch, double zoom,
                      double light)
{
    const float unit = 1 / (FOCAL * (float)zoom * (float)height);
    const float straight = (float)cos(roll);
    const float turned = (float)sin(roll);
    const float level_part = (float)cos(pitch);
    const float tilted = (float)sin(pitch);
    const struct view view = {.distance = (float)distance, .light = (float)light, .pixel = unit};
    for (int row = 0; row < height; ++row)
    {
        for (int column = 0; column < width; ++column)
        {
            const float right = ((float)column - (float)(width - 1) / 2) * unit;
            const float up = ((float)(height - 1) / 2 - (float)row) * unit;
            const float x = right * straight + up * turned;
            const float y = up * straight - right * turned;
            const float ahead = level_part - y * tilted;
            const float vignette = 1 / (1 + 0.25f * (right * right + up * up));
            const struct colour colour =
                times(seen(&view, x / ahead, (y * level_part + tilted) / ahead), vignette * vignette);
            const float grain = (number_at(column + 7919 * row, (int32_t)(distance * 100)) - 0.5f) * 7;
            *pixels++ = level(colour.red, grain);
            *pixels++ = level(colour.green, grain);
            *pixels++ = level(colour.blue, grain);
        }
    }
}
