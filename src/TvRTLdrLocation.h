#pragma once

namespace Asm {

// A place in the text. The scanner counts no lines, so there is nothing to say of one.
struct location {};

}  // namespace Asm

// The generated parser makes its stack in a constructor that it declares not to throw, so that want of memory
// there would end the process. It takes in this header behind the macro's definition.
#undef YY_NOEXCEPT
#define YY_NOEXCEPT
