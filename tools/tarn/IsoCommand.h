#pragma once

class Command;

/// Adds `tarn iso`.
void AddIsoCommand(Command& program);
