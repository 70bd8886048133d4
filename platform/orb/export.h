#pragma once

/// What liborb shows to the outside; everything else has hidden visibility.
#define ORB_API __attribute__((visibility("default")))
