#include <core/image.h>

#include <cassert>
#include <cstddef>

Cimage::Cimage(unsigned width, unsigned height, std::uint8_t value)
    : m_width(width),
      m_height(height),
      m_type(TYPE_GRAY8),
      m_pixels(static_cast<std::size_t>(width) * height, value) {}

std::uint8_t& Cimage::at(unsigned x, unsigned y) {
    assert(x < m_width && y < m_height);
    return m_pixels[static_cast<std::size_t>(y) * m_width + x];
}

std::uint8_t Cimage::at(unsigned x, unsigned y) const {
    assert(x < m_width && y < m_height);
    return m_pixels[static_cast<std::size_t>(y) * m_width + x];
}
