// The layer for a test program that links it: installed before main.
#include "winecompat.h"

namespace {

const bool installed = (testsupport::installWineCompatibility(), true);

} // namespace
