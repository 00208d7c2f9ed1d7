#include "foundation/tkArchiveOperators.h"

#include <cstddef>

tkArchive& operator||(tkArchive& archive, std::vector<double>& elements)
try
{
    const std::size_t count = tkExchangeVectorHead(archive, elements);
    if (archive.isStoring())
        archive.exchangeDoubles(elements.data(), count);
    else
    {
        elements.clear();
        for (std::size_t done = 0; done < count; done = elements.size())
        {
            tkGrowVector(elements, count, 512);
            archive.exchangeDoubles(&elements[done], elements.size() - done);
        }
    }
    return archive;
}
catch (...)
{
    archive.setFailed();
    throw;
}

tkArchive& operator||(tkArchive& archive, std::vector<bool>& elements)
try
{
    constexpr std::size_t step = 512;
    unsigned char flags[step];
    const std::size_t count = tkExchangeVectorHead(archive, elements);
    for (std::size_t done = 0, n = 0; done < count; done += n)
    {
        n = (std::min)(count - done, step);
        if (archive.isStoring())
            std::copy_n(elements.begin() + static_cast<std::ptrdiff_t>(done), n, flags);
        archive.exchangeBools(flags, n);
        if (archive.isLoading())
        {
            if (elements.size() < done + n)
                tkGrowVector(elements, count, step);
            std::copy_n(flags, n, elements.begin() + static_cast<std::ptrdiff_t>(done));
        }
    }
    return archive;
}
catch (...)
{
    archive.setFailed();
    throw;
}
