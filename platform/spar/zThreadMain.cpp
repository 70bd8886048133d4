#include "spar/zThreadMain.h"

zThreadMain::zThreadMain() = default;

zThreadMain::~zThreadMain() = default;
