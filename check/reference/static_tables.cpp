#include "reference/samples.h"

// The tables are data, agreed for all devices. They are the library's own files, so this comparison cannot find an
// error in them; a test compares them with their derivation.
namespace lumivert::reference {

const StaticTable kTable1000 = {
#include "kernels/lookup_1000.inc"
};
const StaticTable kTable4000 = {
#include "kernels/lookup_4000.inc"
};

const StaticTable& table_for(unsigned nits) {
    return nits > 1000 && nits <= 4000 ? kTable4000 : kTable1000;
}

} // namespace lumivert::reference
