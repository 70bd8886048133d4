#pragma once

#include "MoovWriter.h"

namespace Quillon::Orb {

/// Bytes of an index that holds `seconds` of the movie, at the rates that its tracks announce.
long long EstimateIndexSize(const Movie& movie, double seconds);

/// Bytes of the movie's index as it is now, without any room.
long long PresentIndexSize(const Movie& movie);

/// Bytes in which PlanLayout surely finds a layout for the movie as it is now.
long long FittingIndexSize(const Movie& movie);

/// Divides `size` bytes between the tables, in proportion to what each holds or is likely to.
/// A layout without tracks when the movie does not fit with a quarter to spare.
IndexLayout PlanLayout(const Movie& movie, long long size);

/// True when `movie` can be written in `layout`.
bool LayoutHolds(const IndexLayout& layout, const Movie& movie);

/// The part of the fullest table's room that is used, 0 to 1.
double LayoutFill(const IndexLayout& layout, const Movie& movie);

}  // namespace Quillon::Orb
