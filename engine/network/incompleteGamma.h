// The regularized incomplete gamma functions, shared by the equations'
// Gamma law and the learners' chi-square tails.
#pragma once

// P(a, x), the lower one: the Gamma(a, 1) CDF at x.
double VEK_gammaP(double a, double x);
// Q(a, x) = 1 - P(a, x), computed directly where it is small, so that tiny
// tail probabilities keep their digits.
double VEK_gammaQ(double a, double x);
