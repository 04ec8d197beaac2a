// The frame of a dialog, in pixels.
#pragma once

namespace sim {

constexpr int FRAME = 3;
constexpr int CAPTION_HEIGHT = 26;

} // namespace sim
