#include "spar/zCritical.h"

zCritical* zCritical::Factory(char) {
    return new zCritical;
}

zCritical::~zCritical() = default;
