#pragma once

class Command;

/// Adds `tarn record`.
void AddRecordCommand(Command& program);
