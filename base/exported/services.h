// Names that the library itself has no use for.
#pragma once

#include "vorn_ycnr.h"

// Logs the library's version banner at INFO.
VORN_API void lib_version();

// Kept for callers that link them; do nothing.
VORN_API void DUMP_DATA(char* name, const char* mode, int index, void* data, int size);
VORN_API void DUMP_DATA_YNR(char* name, const char* mode, int index, void* data, int size);
