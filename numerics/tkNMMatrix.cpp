#include "numerics/tkNMMatrix.h"

#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

tkNMMatrix::tkNMMatrix(long rows, long cols) : rows_(rows), cols_(cols)
{
    TK_ASSERT(rows >= 0 && cols >= 0);
    elements_.resize(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
}

double tkNMMatrix::compensation(long i, long j) const
{
    const std::size_t position = position_(i, j);
    return compensations_.empty() ? 0.0 : compensations_[position];
}

void tkNMMatrix::compensation(long i, long j, double value)
{
    const std::size_t position = position_(i, j);
    if (compensations_.empty())
    {
        if (value == 0.0)
            return;
        compensations_.resize(elements_.size());
    }
    compensations_[position] = value;
}

bool tkNMMatrix::operator==(const tkNMMatrix& other) const
{
    if (rows_ != other.rows_ || cols_ != other.cols_ || elements_ != other.elements_)
        return false;
    for (long i = 0; i < rows_; ++i)
        for (long j = 0; j < cols_; ++j)
            if (compensation(i, j) != other.compensation(i, j))
                return false;
    return true;
}

std::size_t tkNMMatrix::position_(long i, long j) const
{
    TK_ASSERT(i >= 0 && i < rows_ && j >= 0 && j < cols_);
    return static_cast<std::size_t>(i) * static_cast<std::size_t>(cols_) + static_cast<std::size_t>(j);
}

tkArchive& operator||(tkArchive& archive, tkNMMatrix& matrix)
{
    archive.exchangeVersion("tkNMMatrix");
    tkNMMatrix loaded;
    tkNMMatrix& exchanged = archive.isLoading() ? loaded : matrix;
    archive || exchanged.rows_ || exchanged.cols_ || exchanged.elements_ || exchanged.compensations_;
    if (archive.isLoading())
    {
        const std::size_t size = loaded.elements_.size();
        const bool fits =
            loaded.rows_ >= 0 && loaded.cols_ >= 0 &&
            static_cast<unsigned long long>(loaded.rows_) * static_cast<unsigned long long>(loaded.cols_) == size;
        if (!fits || (!loaded.compensations_.empty() && loaded.compensations_.size() != size))
            archive.fail(L"A stored matrix has another number of elements than its size says");
        matrix = std::move(loaded);
    }
    return archive;
}
