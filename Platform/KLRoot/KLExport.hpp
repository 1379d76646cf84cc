#pragma once

// The one export macro: the component and its platform layer are built with hidden visibility,
// and only what carries this macro is part of the shared library's interface.
#define LM_EXPORT __attribute__((visibility("default")))
