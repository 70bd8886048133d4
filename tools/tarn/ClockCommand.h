#pragma once

class Command;

/// Adds `tarn clock`.
void AddClockCommand(Command& program);
