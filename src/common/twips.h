#pragma once

// The windows were laid out in twips: 15 to a pixel at 96 dpi.
constexpr int twips(int t)
{
    return t / 15;
}
