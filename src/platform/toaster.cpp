#include "platform/toaster.h"

Toaster::~Toaster() = default;
