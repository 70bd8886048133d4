#include "LivePoints.h"

void LiveAtPoint(LivePoint) {}
