#pragma once

class Command;

/// Adds `tarn probe`.
void AddProbeCommand(Command& program);
