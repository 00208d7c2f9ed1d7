#include "dataset.h"

#include "input_error.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

namespace inspector
{

namespace
{

std::string sizeText(long width, long height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

Picture readAtLeastTile(const std::string& file)
{
    Picture picture = readPgm(file);
    if (picture.width < tileSize || picture.height < tileSize)
    {
        throw InputError(file + ": " + sizeText(picture.width, picture.height) + " pixels, smaller than a tile of " +
                         sizeText(tileSize, tileSize));
    }
    return picture;
}

std::vector<Tile> measureTiles(const Picture& picture, long label, long left, long right)
{
    std::vector<Tile> tiles;
    for (long y = 0; y + tileSize <= picture.height; y += tileSize)
    {
        for (long x = left; x + tileSize <= right; x += tileSize)
            tiles.push_back({label, x, y, measureTile(picture, x, y)});
    }
    return tiles;
}

bool isSameFile(const std::string& one, const std::string& other)
{
    std::error_code ignored; // files that cannot be compared differ
    return one == other || std::filesystem::equivalent(one, other, ignored);
}

Picture rightHalf(const Picture& picture)
{
    const long left = picture.width / 2;
    return crop(picture, left, 0, picture.width - left, picture.height);
}

} // namespace

Dataset readDataset(const std::vector<Arguments::Surface>& surfaces)
{
    Dataset dataset;
    for (const Arguments::Surface& surface : surfaces)
    {
        const long label = static_cast<long>(dataset.surfaces.size());
        const Picture picture = readAtLeastTile(surface.file);
        const long middle = picture.width / 2;
        if (middle < tileSize)
        {
            throw InputError(surface.file + ": its left half, " + sizeText(middle, picture.height) +
                             " pixels, is smaller than a tile of " + sizeText(tileSize, tileSize));
        }

        std::vector<Tile> train = measureTiles(picture, label, 0, middle);
        const auto unusable =
            std::remove_if(train.begin(), train.end(), [](const Tile& tile) { return !tile.measured.invalid.empty(); });
        if (unusable == train.begin())
        {
            throw InputError(surface.file +
                             ": no tile of its left half has a valid skewness, all are of one grey level");
        }
        dataset.leftOut += static_cast<long>(train.end() - unusable);
        dataset.train.insert(dataset.train.end(), train.begin(), unusable);

        const std::vector<Tile> test = measureTiles(picture, label, middle, picture.width);
        dataset.test.insert(dataset.test.end(), test.begin(), test.end());
        dataset.surfaces.push_back({surface.name, surface.file, picture});
    }
    return dataset;
}

const Mosaic::Part* Mosaic::partAround(long x, long y, long size) const
{
    const auto found = std::find_if(parts.begin(), parts.end(),
                                    [&](const Part& part) {
                                        return x >= part.x && x + size <= part.x + partWidth && y >= part.y &&
                                               y + size <= part.y + partHeight;
                                    });
    return found == parts.end() ? nullptr : &*found;
}

Mosaic readMosaic(const std::vector<std::string>& files, const std::vector<Surface>& surfaces)
{
    Mosaic mosaic;
    std::vector<Picture> pictures;
    mosaic.partWidth = std::numeric_limits<long>::max();
    mosaic.partHeight = std::numeric_limits<long>::max();
    for (const std::string& file : files)
    {
        const auto surface = std::find_if(surfaces.begin(), surfaces.end(),
                                          [&](const Surface& one) { return isSameFile(one.file, file); });
        if (surface == surfaces.end())
        {
            pictures.push_back(readAtLeastTile(file));
            mosaic.parts.push_back({std::filesystem::path(file).stem().string(), -1, 0, 0});
        }
        else
        {
            pictures.push_back(rightHalf(surface->picture));
            mosaic.parts.push_back({surface->name, static_cast<long>(surface - surfaces.begin()), 0, 0});
        }
        mosaic.partWidth = std::min(mosaic.partWidth, pictures.back().width / tileSize * tileSize);
        mosaic.partHeight = std::min(mosaic.partHeight, pictures.back().height / tileSize * tileSize);
    }

    // As square as can be without an empty place: the most rows that divide the number, up to its square root.
    const long numParts = static_cast<long>(pictures.size());
    long rows = 1;
    for (long candidate = 2; candidate * candidate <= numParts; ++candidate)
    {
        if (numParts % candidate == 0)
            rows = candidate;
    }
    const long columns = numParts / rows;
    mosaic.picture.width = columns * mosaic.partWidth;
    mosaic.picture.height = rows * mosaic.partHeight;
    mosaic.picture.pixels.resize(static_cast<std::size_t>(mosaic.picture.width) *
                                 static_cast<std::size_t>(mosaic.picture.height));
    for (long i = 0; i < numParts; ++i)
    {
        const Picture& picture = pictures[static_cast<std::size_t>(i)];
        Mosaic::Part& part = mosaic.parts[static_cast<std::size_t>(i)];
        part.x = i % columns * mosaic.partWidth;
        part.y = i / columns * mosaic.partHeight;
        paste(mosaic.picture,
              crop(picture, (picture.width - mosaic.partWidth) / 2, (picture.height - mosaic.partHeight) / 2,
                   mosaic.partWidth, mosaic.partHeight),
              part.x, part.y);
    }
    return mosaic;
}

} // namespace inspector
