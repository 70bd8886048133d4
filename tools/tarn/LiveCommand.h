#pragma once

class Command;

/// Adds `tarn live`.
void AddLiveCommand(Command& program);
