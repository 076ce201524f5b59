/* The headers for C callers, once as each language standard that callers use. */
#include "lumivert/converter.h"
#include "lumivert/hdr10plus.h"

int lumivert_headers_compile(void);
int lumivert_headers_compile(void) {
    return (int)sizeof(_HDR2SDR_config_params_t);
}
