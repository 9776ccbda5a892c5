#include "inference/caughtFailure.h"

#include <exception>
#include <new>
#include <stdexcept>

#include "network/logger.h"
#include "network/status.h"

int VEK_caughtFailure(VEK_logger& logger) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return logger.LogError(VEK_OUT_OF_MEMORY);
    } catch (const std::overflow_error&) {
        return logger.LogError(VEK_OUT_OF_MEMORY, VEK_kTableTooLarge);
    } catch (const std::exception& ex) {
        return logger.LogError(VEK_GENERAL_ERROR, ex.what());
    } catch (...) {
        return logger.LogError(VEK_GENERAL_ERROR);
    }
}
