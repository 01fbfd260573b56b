#include "files/Mounted.h"
