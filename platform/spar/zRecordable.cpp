#include "spar/zRecordable.h"

zRecordable::~zRecordable() = default;
