#ifndef CLSS_CLASTOOL_CLASTOOL_TK_MESSAGES_H
#define CLSS_CLASTOOL_CLASTOOL_TK_MESSAGES_H

/// Texts of exceptions that are thrown in more than one place. Hosts compare them: they never change.
namespace tk_Messages
{
inline constexpr wchar_t costsNotNegative[] = L"Costs must be >= 0.0";
inline constexpr wchar_t frequenciesPositive[] = L"Category frequencies must be > 0.0";
inline constexpr wchar_t labelsNotNegative[] = L"Category labels must be >= 0";
inline constexpr wchar_t labelsDifferent[] = L"Category labels must be different";
inline constexpr wchar_t labelsNotNegativeOrUnknown[] = L"Category labels must be >= 0 or unknown";
inline constexpr wchar_t labelsUnique[] = L"The category labels of the match results must be unique.";
inline constexpr wchar_t scoresInUnitRange[] = L"Scores must be >= 0.0 and <= 1.0";
inline constexpr wchar_t measurementIndicesNotNegative[] = L"Feature measurement indices must be >= 0";
inline constexpr wchar_t notTrainedForRetraining[] = L"Classifier tool must be trained before retraining.";
inline constexpr wchar_t notTrainedForRunning[] = L"Classifier tool must be trained before running.";
inline constexpr wchar_t notTrainedForParams[] =
    L"Classifier tool must be trained before requesting the training parameters.";
inline constexpr wchar_t noValidTrainData[] = L"No valid data was provided for training.";
inline constexpr wchar_t knnInvalidMeasurements[] =
    L"K-nearest neighbor classification does not support invalid measurements";
} // namespace tk_Messages

#endif
