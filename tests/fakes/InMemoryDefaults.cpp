#include "InMemoryDefaults.h"
