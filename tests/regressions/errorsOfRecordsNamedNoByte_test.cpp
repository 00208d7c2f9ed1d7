#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "foundation/tkArchiveErrors.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMMatrix.h"
#include "tkTest.h"

#include <sstream>

// What an archive finds wrong names its byte. What the records of densities, category models and classifiers found
// wrong did not, and left the archive going: the next exchange took what followed for the next object.

namespace
{
/// The record of a density of two means and a covariance of one element.
std::string recordThatDoesNotFit()
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        tkNMMatrix mean(2, 1);
        tkNMMatrix covariance(1, 1);
        long count = 1;
        archive || version || version || version || mean || covariance || count;
    }
    return stream.str();
}
} // namespace

TEST(errorsOfRecordsNamedNoByte, theyNameTheEndOfWhatWasRead)
{
    std::istringstream stream(recordThatDoesNotFit() + "more");
    tkArchive archive(stream);
    tk_PDFMultivariateNormal density;
    EXPECT_TK_THROW(archive || density, tkArchive::Errors,
                    L"The statistics of a stored normal distribution do not fit together (reading, at byte 69)");
    unsigned char next = 0;
    EXPECT_THROW(archive || next, tkArchive::Errors);
}
