// GNUstep's headers, built for a runtime with blocks, look for the blocks runtime here; Debian
// ships it as <Block.h> (libblocksruntime-dev). Used only by the macOS compile check.
#pragma once
#include <Block.h>
