#include "tarn/filters/tnNvencVideoCompressor.h"

tnNvencVideoCompressor::tnNvencVideoCompressor() : tnPlatformVideoCompressor('nven') {}

tnNvencVideoCompressor::~tnNvencVideoCompressor() = default;
