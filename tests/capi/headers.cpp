/// All headers, once as each language standard that callers use.
#include "lumivert/converter.h"
#include "lumivert/hdr10plus.h"
#include "lumivert/raw_image.h"
