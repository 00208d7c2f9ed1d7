#ifndef CLSS_CLASTOOL_CLASTOOL_TK_RECORDPLACES_H
#define CLSS_CLASTOOL_CLASTOOL_TK_RECORDPLACES_H

/// What tkArchive::UnknownVersion names as the place of a value type's record: a folder of the sources, and the line
/// in which the record's version is tested. Hosts compare them: they never change, whatever the sources look like.
namespace tk_RecordPlaces
{
inline constexpr char source[] = "clss/clastool/clastool";
inline constexpr int categoryResultLine = 346;
inline constexpr int costsLine = 435;
inline constexpr int frequenciesLine = 522;
inline constexpr int resultLine = 670;
inline constexpr int toolLine = 896;

inline constexpr char bayesSource[] = "clss/clastool/bayes";
inline constexpr int distributionTypesLine = 262;
} // namespace tk_RecordPlaces

#endif
