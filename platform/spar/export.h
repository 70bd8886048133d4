#pragma once

/// What libspar shows to the outside; everything else has hidden visibility.
#define SPAR_API __attribute__((visibility("default")))
