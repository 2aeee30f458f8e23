#include "IOrvdClient.h"

const char deliminator[4] = "[],";
