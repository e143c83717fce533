#include "Figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

double Quantile(std::vector<double>& listSamples, double dPart)
{
    if (listSamples.empty())
    {
        return 0;
    }
    std::sort(listSamples.begin(), listSamples.end());
    const double dIndex = dPart * static_cast<double>(listSamples.size() - 1);
    return listSamples[static_cast<size_t>(lround(dIndex))];
}

std::string Spread(std::vector<double> listSamples, int nDecimals)
{
    const double dMedian = Quantile(listSamples, 0.5);
    if (listSamples.empty())
    {
        return "-";
    }
    char szText[100];
    snprintf(szText, sizeof szText, "%.*f (%.*f to %.*f)", nDecimals, dMedian, nDecimals,
             listSamples.front(), nDecimals, listSamples.back());
    return szText;
}
