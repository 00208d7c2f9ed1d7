#ifndef SURFACE_INSPECTOR_DATASET_H
#define SURFACE_INSPECTOR_DATASET_H

#include "arguments.h"
#include "features.h"
#include "picture.h"

#include <string>
#include <vector>

namespace inspector
{

/// A surface to be learned. Its category label is its index among the surfaces.
struct Surface
{
    std::string name;
    std::string file;
    Picture picture;
};

/// A tile of a surface's picture, from its upper left pixel.
struct Tile
{
    long label;
    long x;
    long y;
    Measurements measured;
};

/// The surfaces, with the tiles side by side in the left halves of their pictures and those in the right halves.
struct Dataset
{
    std::vector<Surface> surfaces;
    std::vector<Tile> train;
    std::vector<Tile> test;
    long leftOut = 0; ///< tiles of left halves with an invalid measurement, which are not in `train`
};

/// Throws InputError if a picture cannot be read, its halves are smaller than a tile, or no tile of its left half can
/// be measured.
Dataset readDataset(const std::vector<Arguments::Surface>& surfaces);

/// Pictures put together in rows: parts of one size, cut from the middle of each.
struct Mosaic
{
    struct Part
    {
        std::string name;
        long label; ///< of the surface, or -1: never trained
        long x;
        long y;
    };

    Picture picture;
    std::vector<Part> parts;
    long partWidth; ///< the size of every part, in whole tiles
    long partHeight;

    /// The part that holds the whole square of `size` pixels at (x, y), or null if there are several.
    const Part* partAround(long x, long y, long size) const;
};

/// Takes the right half of a picture that is among `surfaces`, and all of any other. Throws InputError if a picture
/// cannot be read or is smaller than a tile.
Mosaic readMosaic(const std::vector<std::string>& files, const std::vector<Surface>& surfaces);

} // namespace inspector

#endif
