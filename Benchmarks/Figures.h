#ifndef OSPREY_BENCHMARKS_FIGURES_H
#define OSPREY_BENCHMARKS_FIGURES_H

#include <string>
#include <vector>

// The value below which the given part (0 to 1) of the samples lies; 0 without samples. Sorts them.
double Quantile(std::vector<double>& listSamples, double dPart);

// "median (least to most)" of the samples, with so many decimals.
std::string Spread(std::vector<double> listSamples, int nDecimals);

#endif
