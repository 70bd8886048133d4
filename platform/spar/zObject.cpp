#include "spar/zObject.h"

zObject::~zObject() = default;
