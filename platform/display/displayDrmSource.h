#pragma once

#include "display/displayDrmCard.h"
#include "display/displayRefreshSource.h"

/// Refreshes by the vertical blanks of a graphics card.
class displayDrmSource : public displayRefreshSource {
public:
    /// The first display that is lit and counts its blanks, of the first card that has one; null
    /// when there is none.
    static std::unique_ptr<displayRefreshSource> ForFirstActiveDisplay();

    /// The same of one card, which it owns from then on also when it gives null.
    static std::unique_ptr<displayRefreshSource> ForCard(std::unique_ptr<displayDrmCard> card);

    displayDrmSource(std::unique_ptr<displayDrmCard> card, int pipe, const displayDrmMode& mode);

    displayRefreshRate Rate() const override;

    /// Not ended by an interrupt: a lit display blanks soon, and a dark one ends the wait.
    bool WaitForRefresh(displayRefresh& refresh) override;

private:
    const std::unique_ptr<displayDrmCard> fCard;
    const int fPipe;
    const displayRefreshRate fRate;

    // waiting thread only: the card's 32-bit number, carried on
    long long fCount = -1;
};
