#include "vistrelle/platform/imaging/picture.h"
