/* The Flairize effects as a GIMP 2.10 plug-in: one procedure for every offered
   effect, plug-in-flairize-<slug>, under Filters > Artistic > Flairize. Its
   dialog shows the effect's sliders, the colour where the effect paints with
   it, the progress and a preview; scripts pass the same values as arguments.

   RGB and RGBA drawables are read as 8-bit R'G'B'(A), rendered through
   libflairize in red-first order, exactly as `flairize render` renders the
   same pixels, and written to the shadow buffer, which GIMP merges through the
   selection with an undo step. Drawables of higher precision are converted to
   8 bits for the render and back. */
#include <libgimp/gimp.h>
#include <libgimp/gimpui.h>

#include <flairize/flairize.h>

#include <math.h>
#include <stdio.h>
#include <string.h>

#define PROCEDURE_PREFIX "plug-in-flairize-"
#define MENU_PATH "<Image>/Filters/Artistic/Flairize"
#define SLIDERS 3
#define FULL_PROGRESS 16384
#define FIXED_ARGUMENTS 3 /* run-mode, image, drawable */

/* The values a run uses and GIMP keeps between runs (gimp_set_data). */
typedef struct {
    gint32 sliders[SLIDERS];
    GimpRGB colour;
    gint32 progress; /* 0..16384 */
} EffectValues;

/* The drawable's pixels as 8-bit R'G'B'(A), rows packed. */
typedef struct {
    gint width, height, bytes_per_pixel;
    guchar* pixels;
} DrawablePixels;

typedef struct {
    unsigned effect;
    EffectValues* values;
    const DrawablePixels* source;
    guchar* rendered;
    const flairize_renderer* renderer;
    GimpPreview* preview;
} DialogState;

static void query(void);
static void run(const gchar* name, gint nparams, const GimpParam* param, gint* nreturn_vals, GimpParam** return_vals);

const GimpPlugInInfo PLUG_IN_INFO = {NULL, NULL, query, run};

MAIN()

static gchar* procedure_name(unsigned effect) {
    return g_strconcat(PROCEDURE_PREFIX, flairize_effect_slug(effect), NULL);
}

static unsigned shown_slider_count(unsigned effect) {
    unsigned count = 0;
    for (unsigned slider = 0; slider < SLIDERS; slider++) count += flairize_slider_shown(effect, slider) ? 1u : 0u;
    return count;
}

static gint argument_count(unsigned effect) {
    return (gint)(FIXED_ARGUMENTS + shown_slider_count(effect) + (flairize_effect_uses_colour(effect) ? 1u : 0u) +
                  1u /* progress */);
}

static void query(void) {
    const unsigned count = flairize_effect_count();
    for (unsigned effect = 0; effect < count; effect++) {
        if (!flairize_effect_offered(effect)) continue;
        GimpParamDef args[FIXED_ARGUMENTS + SLIDERS + 2];
        gchar* owned[SLIDERS + 1] = {NULL};
        gint n = 0;
        args[n++] = (GimpParamDef){GIMP_PDB_INT32, "run-mode", "The run mode { RUN-INTERACTIVE (0), RUN-NONINTERACTIVE (1) }"};
        args[n++] = (GimpParamDef){GIMP_PDB_IMAGE, "image", "Input image"};
        args[n++] = (GimpParamDef){GIMP_PDB_DRAWABLE, "drawable", "Input drawable (RGB or RGBA)"};
        for (unsigned slider = 0; slider < SLIDERS; slider++) {
            if (!flairize_slider_shown(effect, slider)) continue;
            owned[slider] = g_strdup_printf("%s: %s (%u..%u, default %u)", flairize_slider_label(effect, slider),
                                            flairize_slider_meaning(effect, slider),
                                            flairize_slider_minimum(effect, slider),
                                            flairize_slider_maximum(effect, slider),
                                            flairize_slider_default(effect, slider));
            args[n++] = (GimpParamDef){GIMP_PDB_INT32, (gchar*)flairize_slider_option(effect, slider), owned[slider]};
        }
        if (flairize_effect_uses_colour(effect))
            args[n++] = (GimpParamDef){GIMP_PDB_COLOR, "colour", "The colour the effect paints with"};
        args[n++] = (GimpParamDef){GIMP_PDB_INT32, "progress",
                                   "How far the effect has advanced: 0..16384 (16384: the full effect)"};
        gchar* name = procedure_name(effect);
        gchar* label = g_strconcat(flairize_effect_name(effect), "...", NULL);
        gchar* help = g_strdup_printf("%s Renders RGB and RGBA drawables as `flairize render --effect %s` renders the "
                                      "same pixels.",
                                      flairize_effect_description(effect), flairize_effect_slug(effect));
        gimp_install_procedure(name, flairize_effect_description(effect), help, "Flairize", "Flairize", "2026", label,
                               "RGB*", GIMP_PLUGIN, n, 0, args, NULL);
        gimp_plugin_menu_register(name, MENU_PATH);
        g_free(help);
        g_free(label);
        g_free(name);
        for (unsigned i = 0; i <= SLIDERS; i++) g_free(owned[i]);
    }
}

/* The effect a procedure name stands for; FALSE for a name of no offered effect. */
static gboolean effect_of(const gchar* name, unsigned* effect) {
    if (!g_str_has_prefix(name, PROCEDURE_PREFIX)) return FALSE;
    return flairize_effect_find(name + strlen(PROCEDURE_PREFIX), effect) == FLAIRIZE_OK &&
           flairize_effect_offered(*effect) &&
           strcmp(flairize_effect_slug(*effect), name + strlen(PROCEDURE_PREFIX)) == 0;
}

static void default_values(unsigned effect, EffectValues* values) {
    for (unsigned slider = 0; slider < SLIDERS; slider++)
        values->sliders[slider] = (gint32)flairize_slider_default(effect, slider);
    gimp_rgba_set(&values->colour, 0.0, 0.0, 0.0, 1.0);
    values->progress = FULL_PROGRESS;
}

static guint32 colour_value(const GimpRGB* colour) {
    guchar r, g, b;
    gimp_rgb_get_uchar(colour, &r, &g, &b);
    return (guint32)r << 16 | (guint32)g << 8 | b;
}

static flairize_status render_pixels(unsigned effect, const EffectValues* values, const flairize_renderer* renderer,
                                     const DrawablePixels* source, guchar* output, const char** message) {
    flairize_settings settings;
    flairize_status status = flairize_settings_init(&settings, effect);
    if (status != FLAIRIZE_OK) return status;
    for (unsigned slider = 0; slider < SLIDERS; slider++) settings.sliders[slider] = (uint32_t)values->sliders[slider];
    settings.colour = colour_value(&values->colour);
    settings.progress = (uint32_t)values->progress;
    const ptrdiff_t stride = (ptrdiff_t)source->width * source->bytes_per_pixel;
    return flairize_render(renderer, &settings, source->pixels, stride, output, stride, (uint32_t)source->width,
                           (uint32_t)source->height, (uint32_t)source->bytes_per_pixel, FLAIRIZE_ORDER_RGB, message);
}

static const Babl* pixel_format(gboolean alpha) {
    return babl_format(alpha ? "R'G'B'A u8" : "R'G'B' u8");
}

/* Reads the whole drawable; FALSE when it is too large for the library or memory. */
static gboolean read_drawable(gint32 drawable, DrawablePixels* pixels) {
    pixels->width = gimp_drawable_width(drawable);
    pixels->height = gimp_drawable_height(drawable);
    const gboolean alpha = gimp_drawable_has_alpha(drawable);
    pixels->bytes_per_pixel = alpha ? 4 : 3;
    pixels->pixels = NULL;
    if (pixels->width < 1 || pixels->height < 1 || pixels->width > 65535 || pixels->height > 65535) return FALSE;
    pixels->pixels = g_try_malloc((gsize)pixels->width * (gsize)pixels->height * (gsize)pixels->bytes_per_pixel);
    if (!pixels->pixels) return FALSE;
    GeglBuffer* buffer = gimp_drawable_get_buffer(drawable);
    gegl_buffer_get(buffer, GEGL_RECTANGLE(0, 0, pixels->width, pixels->height), 1.0, pixel_format(alpha),
                    pixels->pixels, GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
    g_object_unref(buffer);
    return TRUE;
}

/* ---- the dialog */

static void draw_preview(GimpPreview* preview, DialogState* state) {
    const char* message = "";
    const DrawablePixels* source = state->source;
    if (render_pixels(state->effect, state->values, state->renderer, source, state->rendered, &message) != FLAIRIZE_OK) {
        g_message("Flairize: %s", message);
        return;
    }
    gint x, y, width, height;
    gimp_preview_get_position(preview, &x, &y);
    gimp_preview_get_size(preview, &width, &height);
    if (x < 0 || y < 0 || width < 1 || height < 1) return;
    if (x + width > source->width) width = source->width - x;
    if (y + height > source->height) height = source->height - y;
    if (width < 1 || height < 1) return;
    const gint stride = source->width * source->bytes_per_pixel;
    gimp_preview_area_draw(GIMP_PREVIEW_AREA(gimp_preview_get_area(preview)), 0, 0, width, height,
                           source->bytes_per_pixel == 4 ? GIMP_RGBA_IMAGE : GIMP_RGB_IMAGE,
                           state->rendered + (gsize)y * (gsize)stride + (gsize)x * (gsize)source->bytes_per_pixel,
                           stride);
}

static void slider_changed(GtkAdjustment* adjustment, gint32* value) {
    *value = (gint32)lround(gtk_adjustment_get_value(adjustment));
}

static void progress_changed(GtkAdjustment* adjustment, gint32* progress) {
    /* A percentage to steps, as `flairize render --progress P%` takes it. */
    *progress = (gint32)floor(gtk_adjustment_get_value(adjustment) / 100.0 * FULL_PROGRESS + 0.5);
}

static gboolean show_dialog(gint32 drawable, unsigned effect, EffectValues* values, DialogState* state) {
    gimp_ui_init("flairize", FALSE);
    GtkWidget* dialog = gimp_dialog_new(flairize_effect_name(effect), "flairize", NULL, 0, gimp_standard_help_func,
                                        NULL, "_Cancel", GTK_RESPONSE_CANCEL, "_OK", GTK_RESPONSE_OK, NULL);
    gtk_dialog_set_alternative_button_order(GTK_DIALOG(dialog), GTK_RESPONSE_OK, GTK_RESPONSE_CANCEL, -1);
    gimp_window_set_transient(GTK_WINDOW(dialog));

    GtkWidget* box = gtk_vbox_new(FALSE, 12);
    gtk_container_set_border_width(GTK_CONTAINER(box), 12);
    gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), box, TRUE, TRUE, 0);

    GtkWidget* preview = gimp_drawable_preview_new_from_drawable_id(drawable);
    gtk_box_pack_start(GTK_BOX(box), preview, TRUE, TRUE, 0);
    state->preview = GIMP_PREVIEW(preview);
    g_signal_connect(preview, "invalidated", G_CALLBACK(draw_preview), state);

    GtkWidget* description = gtk_label_new(flairize_effect_description(effect));
    gtk_label_set_line_wrap(GTK_LABEL(description), TRUE);
    gtk_misc_set_alignment(GTK_MISC(description), 0.0, 0.5);
    gtk_box_pack_start(GTK_BOX(box), description, FALSE, FALSE, 0);

    GtkWidget* table = gtk_table_new(SLIDERS + 2, 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 6);
    gtk_box_pack_start(GTK_BOX(box), table, FALSE, FALSE, 0);
    int row = 0;
    for (unsigned slider = 0; slider < SLIDERS; slider++) {
        if (!flairize_slider_shown(effect, slider)) continue;
        gchar* label = g_strconcat(flairize_slider_label(effect, slider), ":", NULL);
        GtkObject* adjustment = gimp_scale_entry_new(
            GTK_TABLE(table), 0, row++, label, 200, 0, values->sliders[slider], flairize_slider_minimum(effect, slider),
            flairize_slider_maximum(effect, slider), 1, 16, 0, TRUE, 0, 0, flairize_slider_meaning(effect, slider), NULL);
        g_free(label);
        g_signal_connect(adjustment, "value-changed", G_CALLBACK(slider_changed), &values->sliders[slider]);
        g_signal_connect_swapped(adjustment, "value-changed", G_CALLBACK(gimp_preview_invalidate), preview);
    }
    GtkObject* progress = gimp_scale_entry_new(GTK_TABLE(table), 0, row++, "Progress:", 200, 0,
                                               values->progress * 100.0 / FULL_PROGRESS, 0, 100, 1, 10, 1, TRUE, 0, 0,
                                               "How far the effect has advanced, in percent", NULL);
    g_signal_connect(progress, "value-changed", G_CALLBACK(progress_changed), &values->progress);
    g_signal_connect_swapped(progress, "value-changed", G_CALLBACK(gimp_preview_invalidate), preview);
    if (flairize_effect_uses_colour(effect)) {
        GtkWidget* button = gimp_color_button_new("Flairize colour", 48, 20, &values->colour, GIMP_COLOR_AREA_FLAT);
        gimp_table_attach_aligned(GTK_TABLE(table), 0, row++, "Colour:", 0.0, 0.5, button, 1, TRUE);
        g_signal_connect(button, "color-changed", G_CALLBACK(gimp_color_button_get_color), &values->colour);
        g_signal_connect_swapped(button, "color-changed", G_CALLBACK(gimp_preview_invalidate), preview);
    }

    gtk_widget_show_all(dialog);
    const gboolean accepted = gimp_dialog_run(GIMP_DIALOG(dialog)) == GTK_RESPONSE_OK;
    gtk_widget_destroy(dialog);
    return accepted;
}

/* ---- running a procedure */

static GimpPDBStatusType values_from_arguments(unsigned effect, gint nparams, const GimpParam* param,
                                               EffectValues* values) {
    if (nparams != argument_count(effect)) return GIMP_PDB_CALLING_ERROR;
    gint n = FIXED_ARGUMENTS;
    for (unsigned slider = 0; slider < SLIDERS; slider++) {
        if (!flairize_slider_shown(effect, slider)) continue;
        const gint32 value = param[n++].data.d_int32;
        if (value < (gint32)flairize_slider_minimum(effect, slider) ||
            value > (gint32)flairize_slider_maximum(effect, slider))
            return GIMP_PDB_CALLING_ERROR;
        values->sliders[slider] = value;
    }
    if (flairize_effect_uses_colour(effect)) values->colour = param[n++].data.d_color;
    const gint32 progress = param[n].data.d_int32;
    if (progress < 0 || progress > FULL_PROGRESS) return GIMP_PDB_CALLING_ERROR;
    values->progress = progress;
    return GIMP_PDB_SUCCESS;
}

static GimpPDBStatusType apply(gint32 drawable, unsigned effect, const EffectValues* values,
                               const flairize_renderer* renderer, const DrawablePixels* source) {
    guchar* output = g_try_malloc((gsize)source->width * (gsize)source->height * (gsize)source->bytes_per_pixel);
    if (!output) {
        g_message("Flairize: not enough memory for a %d x %d picture", source->width, source->height);
        return GIMP_PDB_EXECUTION_ERROR;
    }
    gimp_progress_init_printf("Flairize: %s", flairize_effect_name(effect));
    const char* message = "";
    const gint64 start = g_get_monotonic_time();
    const flairize_status rendered = render_pixels(effect, values, renderer, source, output, &message);
    /* FLAIRIZE_GIMP_TIMING set: the render's time (what each preview update costs) on standard error. */
    if (g_getenv("FLAIRIZE_GIMP_TIMING"))
        fprintf(stderr, "flairize: %s %d x %d x %d: render %.1f ms\n", flairize_effect_slug(effect), source->width,
                source->height, source->bytes_per_pixel, (double)(g_get_monotonic_time() - start) / 1000.0);
    if (rendered != FLAIRIZE_OK) {
        g_message("Flairize: %s", message);
        g_free(output);
        return GIMP_PDB_EXECUTION_ERROR;
    }
    /* The whole drawable is rendered, as `flairize render` renders a whole
       picture; merging the shadow keeps only what the selection covers. */
    GeglBuffer* shadow = gimp_drawable_get_shadow_buffer(drawable);
    gegl_buffer_set(shadow, GEGL_RECTANGLE(0, 0, source->width, source->height), 0,
                    pixel_format(source->bytes_per_pixel == 4), output, GEGL_AUTO_ROWSTRIDE);
    gegl_buffer_flush(shadow);
    g_object_unref(shadow);
    g_free(output);
    gimp_drawable_merge_shadow(drawable, TRUE);
    gimp_drawable_update(drawable, 0, 0, source->width, source->height);
    gimp_progress_update(1.0);
    return GIMP_PDB_SUCCESS;
}

static void run(const gchar* name, gint nparams, const GimpParam* param, gint* nreturn_vals, GimpParam** return_vals) {
    static GimpParam results[1];
    GimpPDBStatusType status = GIMP_PDB_SUCCESS;
    *nreturn_vals = 1;
    *return_vals = results;
    results[0].type = GIMP_PDB_STATUS;

    unsigned effect = 0;
    if (nparams < FIXED_ARGUMENTS || !effect_of(name, &effect)) {
        results[0].data.d_status = GIMP_PDB_CALLING_ERROR;
        return;
    }
    gegl_init(NULL, NULL);
    const GimpRunMode mode = (GimpRunMode)param[0].data.d_int32;
    const gint32 drawable = param[2].data.d_drawable;

    EffectValues values;
    default_values(effect, &values);
    if (mode == GIMP_RUN_NONINTERACTIVE) {
        status = values_from_arguments(effect, nparams, param, &values);
    } else {
        gimp_get_data(name, &values);
    }
    if (status == GIMP_PDB_SUCCESS && !gimp_drawable_is_rgb(drawable)) {
        g_message("Flairize renders RGB and RGBA layers; convert the image to RGB first.");
        status = GIMP_PDB_EXECUTION_ERROR;
    }

    DrawablePixels source = {0, 0, 0, NULL};
    flairize_renderer* renderer = NULL;
    if (status == GIMP_PDB_SUCCESS && !read_drawable(drawable, &source)) {
        g_message("Flairize: the drawable (%d x %d) is too large to render", source.width, source.height);
        status = GIMP_PDB_EXECUTION_ERROR;
    }
    if (status == GIMP_PDB_SUCCESS && flairize_renderer_new(0, &renderer) != FLAIRIZE_OK) {
        status = GIMP_PDB_EXECUTION_ERROR;
    }
    if (status == GIMP_PDB_SUCCESS && mode == GIMP_RUN_INTERACTIVE) {
        DialogState state = {effect, &values, &source, NULL, renderer, NULL};
        state.rendered = g_try_malloc((gsize)source.width * (gsize)source.height * (gsize)source.bytes_per_pixel);
        if (!state.rendered) {
            status = GIMP_PDB_EXECUTION_ERROR;
        } else if (!show_dialog(drawable, effect, &values, &state)) {
            status = GIMP_PDB_CANCEL;
        }
        g_free(state.rendered);
    }
    if (status == GIMP_PDB_SUCCESS) status = apply(drawable, effect, &values, renderer, &source);
    if (status == GIMP_PDB_SUCCESS) {
        if (mode != GIMP_RUN_NONINTERACTIVE) gimp_displays_flush();
        if (mode == GIMP_RUN_INTERACTIVE) gimp_set_data(name, &values, sizeof values);
    }
    flairize_renderer_free(renderer);
    g_free(source.pixels);
    results[0].data.d_status = status;
}
