#pragma once

namespace Asm {

// A place in the text. The scanner counts no lines, so there is nothing to say of one.
struct location {};

}  // namespace Asm
