#include "network/inferenceSettings.h"

#include "network/network.h"

VEK_inferenceSettings::VEK_inferenceSettings()
    : bnAlgorithm(VEK_ALG_BN_LAURITZEN),
      idAlgorithm(VEK_ALG_ID_COOPER),
      flags(VEK_FLAG_RELEVANCE | VEK_FLAG_DETERMINISTIC_PROPAGATION),
      relevanceMask(VEK_initRelevanceFlags()) {}
