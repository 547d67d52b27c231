// Minimal image: a width, a height, a pixel type and a row-major block of
// 8-bit samples (one per pixel).  The math library only asks an image for its
// size and type; the pixel access exists for callers that build masks.
#ifndef CORE_IMAGE_H
#define CORE_IMAGE_H

#include <core/core_export.h>

#include <cstdint>
#include <vector>

class CORE_API Cimage {
public:
    enum Ttype { TYPE_NONE = 0, TYPE_GRAY8 = 1 };

    Cimage() : m_width(0), m_height(0), m_type(TYPE_NONE) {}
    // A width x height gray image, every pixel `value`.
    Cimage(unsigned width, unsigned height, std::uint8_t value = 0);

    unsigned width() const { return m_width; }
    unsigned height() const { return m_height; }
    int type() const { return m_type; }

    // Pixel (x, y); no bounds check beyond an assertion in checking builds.
    std::uint8_t& at(unsigned x, unsigned y);
    std::uint8_t at(unsigned x, unsigned y) const;

private:
    unsigned m_width;
    unsigned m_height;
    int m_type;
    std::vector<std::uint8_t> m_pixels;
};

#endif
