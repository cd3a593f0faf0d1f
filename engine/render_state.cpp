#include "engine/render_state.h"

RenderState& renderState() {
    thread_local RenderState state;
    return state;
}
