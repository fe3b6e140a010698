#include "linux/cli/explain.h"

#include <exception>

#include "linux/cli/program.h"
#include "platform/failure.h"

namespace vorlinden::cli {

Explanation explain(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const UsageError& error) {
        return {wrongUsage, error.what()};
    } catch (const platform::CancelledError&) {
        return {failed, "Interrupted."};
    } catch (const std::exception& error) {
        return {failed, error.what()};
    } catch (...) {
        return {failed, "Something failed that has no name."};
    }
}

}  // namespace vorlinden::cli
