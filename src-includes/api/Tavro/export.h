#pragma once

// Everything is compiled with hidden visibility; what a library offers to others is marked with this.
#define TAVRO_EXPORT __attribute__((visibility("default")))
