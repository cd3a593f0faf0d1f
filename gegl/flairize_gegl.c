/* GEGL operations flairize:<slug>, one for every offered effect, registered at
   load time from the C library's catalogue. Each takes the whole picture as
   8-bit R'G'B'A (the library's RGBA order, alpha as the effect's mask), so
   the pixels reach the engine unchanged and the output equals the flairize
   command's render of the same 32-bit picture. */
#include <gegl-plugin.h>
#include <gegl.h>
#include <gmodule.h>
#include <stdio.h>
#include <string.h>

#include "flairize/flairize.h"

#define SLIDERS 3

enum { PROP_0, PROP_SLIDER_FIRST, PROP_COLOUR = PROP_SLIDER_FIRST + SLIDERS, PROP_PROGRESS };

typedef struct {
    GeglOperationFilter parent_instance;
    gint sliders[SLIDERS];
    GeglColor* colour;
    gint progress;
} FlairizeOperation;

typedef struct {
    GeglOperationFilterClass parent_class;
    guint effect;
} FlairizeOperationClass;

static GObjectClass* filter_parent_class;

static guint effect_of(gpointer object) { return ((FlairizeOperationClass*)G_OBJECT_GET_CLASS(object))->effect; }

static void flairize_set_property(GObject* object, guint id, const GValue* value, GParamSpec* property) {
    FlairizeOperation* self = (FlairizeOperation*)object;
    if (id >= PROP_SLIDER_FIRST && id < PROP_SLIDER_FIRST + SLIDERS) {
        self->sliders[id - PROP_SLIDER_FIRST] = g_value_get_int(value);
    } else if (id == PROP_COLOUR) {
        GeglColor* old = self->colour;
        self->colour = g_value_dup_object(value);
        if (old) g_object_unref(old);
    } else if (id == PROP_PROGRESS) {
        self->progress = g_value_get_int(value);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

static void flairize_get_property(GObject* object, guint id, GValue* value, GParamSpec* property) {
    FlairizeOperation* self = (FlairizeOperation*)object;
    if (id >= PROP_SLIDER_FIRST && id < PROP_SLIDER_FIRST + SLIDERS) {
        g_value_set_int(value, self->sliders[id - PROP_SLIDER_FIRST]);
    } else if (id == PROP_COLOUR) {
        g_value_set_object(value, self->colour);
    } else if (id == PROP_PROGRESS) {
        g_value_set_int(value, self->progress);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

static void flairize_dispose(GObject* object) {
    FlairizeOperation* self = (FlairizeOperation*)object;
    g_clear_object(&self->colour);
    filter_parent_class->dispose(object);
}

static void flairize_prepare(GeglOperation* operation) {
    const Babl* format = babl_format("R'G'B'A u8");
    gegl_operation_set_format(operation, "input", format);
    gegl_operation_set_format(operation, "output", format);
}

/* Effects read their neighbours, some across the whole picture: every output
   pixel needs the whole input, and the output is made in one piece. */
static GeglRectangle whole_input(GeglOperation* operation) {
    const GeglRectangle* box = gegl_operation_source_get_bounding_box(operation, "input");
    GeglRectangle whole = {0, 0, 0, 0};
    if (box) whole = *box;
    return whole;
}

static GeglRectangle flairize_required_for_output(GeglOperation* operation, const gchar* pad,
                                                  const GeglRectangle* roi) {
    (void)pad;
    (void)roi;
    return whole_input(operation);
}

static GeglRectangle flairize_cached_region(GeglOperation* operation, const GeglRectangle* roi) {
    (void)roi;
    return whole_input(operation);
}

/* One renderer for the process, on all cores; the result is the same for every count. */
static const flairize_renderer* shared_renderer(void) {
    static gsize made = 0;
    static flairize_renderer* renderer = NULL;
    if (g_once_init_enter(&made)) {
        if (flairize_renderer_new(0, &renderer) != FLAIRIZE_OK) renderer = NULL; /* null: the caller's thread */
        g_once_init_leave(&made, 1);
    }
    return renderer;
}

static gboolean flairize_process(GeglOperation* operation, GeglBuffer* input, GeglBuffer* output,
                                 const GeglRectangle* result, gint level) {
    FlairizeOperation* self = (FlairizeOperation*)operation;
    const Babl* format = gegl_operation_get_format(operation, "output");
    const GeglRectangle whole = whole_input(operation);
    (void)level;
    if (whole.width <= 0 || whole.height <= 0) return TRUE;

    flairize_settings settings;
    if (flairize_settings_init(&settings, effect_of(self)) != FLAIRIZE_OK) return FALSE;
    for (unsigned slider = 0; slider < SLIDERS; ++slider) settings.sliders[slider] = (uint32_t)self->sliders[slider];
    settings.progress = (uint32_t)self->progress;
    if (self->colour) {
        guint8 rgb[3];
        gegl_color_get_pixel(self->colour, babl_format("R'G'B' u8"), rgb);
        settings.colour = (uint32_t)rgb[0] << 16 | (uint32_t)rgb[1] << 8 | rgb[2];
    }

    const gsize stride = (gsize)whole.width * 4;
    guint8* source = g_try_malloc(stride * (gsize)whole.height);
    guint8* rendered = g_try_malloc(stride * (gsize)whole.height);
    gboolean done = FALSE;
    if (!source || !rendered) {
        g_warning("flairize:%s: no memory for a %d x %d picture", flairize_effect_slug(settings.effect), whole.width,
                  whole.height);
    } else {
        gegl_buffer_get(input, &whole, 1.0, format, source, (gint)stride, GEGL_ABYSS_NONE);
        const char* message = NULL;
        const flairize_status status =
            flairize_render(shared_renderer(), &settings, source, (ptrdiff_t)stride, rendered, (ptrdiff_t)stride,
                            (uint32_t)whole.width, (uint32_t)whole.height, 4, FLAIRIZE_ORDER_RGB, &message);
        if (status != FLAIRIZE_OK) {
            g_warning("flairize:%s: %s", flairize_effect_slug(settings.effect),
                      message && *message ? message : flairize_status_text(status));
        } else {
            /* The part of the render the caller asked for. */
            GeglRectangle part;
            if (gegl_rectangle_intersect(&part, result, &whole)) {
                const guint8* first = rendered + (gsize)(part.y - whole.y) * stride + (gsize)(part.x - whole.x) * 4;
                gegl_buffer_set(output, &part, 0, format, first, (gint)stride);
            }
            done = TRUE;
        }
    }
    g_free(source);
    g_free(rendered);
    return done;
}

static void flairize_class_init(gpointer klass, gpointer class_data) {
    const guint effect = GPOINTER_TO_UINT(class_data);
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GeglOperationClass* operation_class = GEGL_OPERATION_CLASS(klass);
    GeglOperationFilterClass* filter_class = GEGL_OPERATION_FILTER_CLASS(klass);
    ((FlairizeOperationClass*)klass)->effect = effect;
    filter_parent_class = g_type_class_peek_parent(klass);

    object_class->set_property = flairize_set_property;
    object_class->get_property = flairize_get_property;
    object_class->dispose = flairize_dispose;
    operation_class->prepare = flairize_prepare;
    operation_class->get_required_for_output = flairize_required_for_output;
    operation_class->get_cached_region = flairize_cached_region;
    operation_class->threaded = FALSE; /* one render of the whole picture; the library has its own threads */
    operation_class->want_in_place = FALSE;
    filter_class->process = flairize_process;

    const GParamFlags flags = G_PARAM_READWRITE | G_PARAM_CONSTRUCT | G_PARAM_STATIC_STRINGS;
    for (guint slider = 0; slider < SLIDERS; ++slider) {
        if (!flairize_slider_shown(effect, slider)) continue;
        const gint minimum = (gint)flairize_slider_minimum(effect, slider);
        const gint maximum = (gint)flairize_slider_maximum(effect, slider);
        g_object_class_install_property(
            object_class, PROP_SLIDER_FIRST + slider,
            gegl_param_spec_int(flairize_slider_option(effect, slider), flairize_slider_label(effect, slider),
                                flairize_slider_meaning(effect, slider), minimum, maximum,
                                (gint)flairize_slider_default(effect, slider), minimum, maximum, 1.0, flags));
    }
    if (flairize_effect_uses_colour(effect)) {
        g_object_class_install_property(object_class, PROP_COLOUR,
                                        gegl_param_spec_color_from_string(
                                            "colour", "Colour", "The colour the effect paints with", "#000000", flags));
    }
    g_object_class_install_property(
        object_class, PROP_PROGRESS,
        gegl_param_spec_int("progress", "Progress",
                            "How far the effect has advanced, 0..16384 (16384: fully, as the flairize command's "
                            "--progress)",
                            0, 16384, 16384, 0, 16384, 1.0, flags));

    /* GEGL keeps the name's pointer: an interned string lives as long as the class. */
    gchar* name = g_strconcat("flairize:", flairize_effect_slug(effect), NULL);
    const gchar* kept_name = g_intern_string(name);
    g_free(name);
    gegl_operation_class_set_keys(operation_class, "name", kept_name, "title", flairize_effect_name(effect),
                                  "categories", "artistic", "description", flairize_effect_description(effect), NULL);
}

static void flairize_instance_init(GTypeInstance* instance, gpointer klass) {
    FlairizeOperation* self = (FlairizeOperation*)instance;
    const guint effect = ((FlairizeOperationClass*)klass)->effect;
    for (guint slider = 0; slider < SLIDERS; ++slider)
        self->sliders[slider] = (gint)flairize_slider_default(effect, slider);
    self->progress = 16384;
}

static const GeglModuleInfo module_info = {GEGL_MODULE_ABI_VERSION};

G_MODULE_EXPORT const GeglModuleInfo* gegl_module_query(GTypeModule* module) {
    (void)module;
    return &module_info;
}

G_MODULE_EXPORT gboolean gegl_module_register(GTypeModule* module) {
    const unsigned count = flairize_effect_count();
    for (unsigned effect = 0; effect < count; ++effect) {
        if (!flairize_effect_offered(effect)) continue;
        /* GType names take letters, digits, '-', '_' and '+'. */
        gchar* type_name = g_strconcat("FlairizeOperation-", flairize_effect_slug(effect), NULL);
        const GTypeInfo info = {
            sizeof(FlairizeOperationClass),
            NULL,
            NULL,
            flairize_class_init,
            NULL,
            GUINT_TO_POINTER(effect),
            sizeof(FlairizeOperation),
            0,
            flairize_instance_init,
            NULL,
        };
        g_type_module_register_type(module, GEGL_TYPE_OPERATION_FILTER, type_name, &info, 0);
        g_free(type_name);
    }
    return TRUE;
}
