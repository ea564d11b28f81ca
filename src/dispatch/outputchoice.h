#pragma once

#include "convert/conversion.h"

#include <QString>
#include <optional>

// What becomes of a job: the Output box of the main window, read once.
struct OutputChoice {
    enum class Action { None, Pdf, Image, Print, Cloud };
    enum class ImageKind { Other, Tiff, Jpeg };

    Action action = Action::Pdf;
    ImageKind image = ImageKind::Other; // under Image only
    bool colour = false;                // under Image only

    // What Ghostscript makes; none for the cloud (the job is uploaded as it is).
    std::optional<GsOutput> gsOutput() const
    {
        switch (action) {
        case Action::Print:
            return GsOutput::PrintTiff;
        case Action::Image:
            return colour ? GsOutput::ImageColour : GsOutput::ImageGray;
        case Action::Pdf:
            return GsOutput::Pdf;
        default:
            return std::nullopt;
        }
    }
    // The extension of Ghostscript's output, empty when there is none.
    QString extension() const
    {
        if (action == Action::Pdf)
            return QStringLiteral(".pdf");
        if (action == Action::Image || action == Action::Print)
            return QStringLiteral(".tif");
        return {};
    }
    bool operator==(const OutputChoice&) const = default;
};
