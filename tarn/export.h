#pragma once

/// What libtarn shows to the outside; everything else has hidden visibility.
#define TARN_API __attribute__((visibility("default")))
