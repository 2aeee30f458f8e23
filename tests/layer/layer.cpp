// The layer's functions for the tests that are compiled without them.
#include "orvex/implementation.h"
