#include "platform/random.h"

namespace plat {

RandomState& threadRandom() {
    thread_local RandomState state;
    return state;
}

}  // namespace plat
