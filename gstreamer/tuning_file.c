#include "tuning_file.h"

#include <json-glib/json-glib.h>
#include <math.h>
#include <stddef.h>

/* Where a record keeps the field of a key; count > 1 is an array of one number per pyramid level. */
typedef struct {
  const gchar* key;
  gsize offset;
  guint count;
} Field;

#define LUMA(key, count) {#key, offsetof(ycnr_ynr_tuning_param, key), count}
#define CHROMA(key) {#key, offsetof(ycnr_cnr_tuning_param, key), 1}

static const Field luma_fields[] = {LUMA(enable, 1),  LUMA(layer, 1),  LUMA(pIntensity, 5),
                                    LUMA(pRadius, 5), LUMA(param0, 1), LUMA(param1, 1),
                                    LUMA(param2, 1)};
static const Field chroma_fields[] = {
    CHROMA(enable),       CHROMA(range_factor), CHROMA(smooth_radius), CHROMA(scale),
    CHROMA(step),         CHROMA(color_edge_u), CHROMA(color_edge_v),  CHROMA(saturation),
    CHROMA(param0),       CHROMA(param1),       CHROMA(param2)};

G_DEFINE_QUARK(vorn-tuning-error, tuning_error)

/* Every fault is told as "FILE: CAUSE". */
static gboolean fail(GError** error, const gchar* path, const gchar* format, ...) G_GNUC_PRINTF(3, 4);
static gboolean fail(GError** error, const gchar* path, const gchar* format, ...) {
  va_list args;
  va_start(args, format);
  gchar* cause = g_strdup_vprintf(format, args);
  va_end(args);
  g_set_error(error, tuning_error_quark(), 0, "%s: %s", path, cause);
  g_free(cause);
  return FALSE;
}

static gboolean read_integer(JsonNode* node, gint32* value) {
  if (!node || !JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_INT64)
    return FALSE;
  const gint64 wide = json_node_get_int(node);
  *value = (gint32)wide;
  return *value == wide;
}

static gboolean read_record(JsonObject* entry, const gchar* name, const Field* fields, guint count,
                            void* record, const gchar* path, GError** error) {
  JsonNode* node = json_object_get_member(entry, name);
  if (!node || !JSON_NODE_HOLDS_OBJECT(node)) return fail(error, path, "\"%s\" is missing", name);
  JsonObject* object = json_node_get_object(node);

  for (guint i = 0; i < count; ++i) {
    JsonNode* member = json_object_get_member(object, fields[i].key);
    gint32* values = (gint32*)((guint8*)record + fields[i].offset);
    gboolean good;
    if (fields[i].count == 1) {
      good = read_integer(member, values);
    } else {
      JsonArray* array = member && JSON_NODE_HOLDS_ARRAY(member) ? json_node_get_array(member) : NULL;
      good = array && json_array_get_length(array) == fields[i].count;
      for (guint k = 0; good && k < fields[i].count; ++k)
        good = read_integer(json_array_get_element(array, k), values + k);
    }
    if (!good)
      return fail(error, path, "%s.%s must be %s 32-bit integer%s", name, fields[i].key,
                  fields[i].count == 1 ? "a" : "an array of five", fields[i].count == 1 ? "" : "s");
  }
  if (json_object_get_size(object) > count) {
    GList* names = json_object_get_members(object);
    const gchar* unknown = NULL;
    for (GList* n = names; n && !unknown; n = n->next) {
      unknown = n->data;
      for (guint i = 0; i < count && unknown; ++i)
        if (g_str_equal(unknown, fields[i].key)) unknown = NULL;
    }
    fail(error, path, "unknown field %s.%s", name, unknown);
    g_list_free(names);
    return FALSE;
  }
  return TRUE;
}

static gboolean read_entry(JsonNode* node, TuningEntry* entry, const gchar* path, GError** error) {
  if (!JSON_NODE_HOLDS_OBJECT(node)) return fail(error, path, "an entry is not an object");
  JsonObject* object = json_node_get_object(node);
  JsonNode* gain = json_object_get_member(object, "gain");
  if (!gain || !JSON_NODE_HOLDS_VALUE(gain) || !(json_node_get_double(gain) > 0))
    return fail(error, path, "an entry has no positive gain");
  entry->gain = json_node_get_double(gain);
  return read_record(object, "luma", luma_fields, G_N_ELEMENTS(luma_fields), &entry->luma, path,
                     error) &&
         read_record(object, "chroma", chroma_fields, G_N_ELEMENTS(chroma_fields), &entry->chroma,
                     path, error);
}

GArray* tuning_file_read(const gchar* path, GError** error) {
  JsonParser* parser = json_parser_new_immutable();
  GArray* set = g_array_new(FALSE, TRUE, sizeof(TuningEntry));
  gboolean good = FALSE;

  GError* cause = NULL;
  if (!json_parser_load_from_file(parser, path, &cause)) {
    fail(error, path, "%s", cause->message);
    g_error_free(cause);
  } else {
    JsonNode* root = json_parser_get_root(parser);
    JsonNode* entries = root && JSON_NODE_HOLDS_OBJECT(root)
                            ? json_object_get_member(json_node_get_object(root), "entries")
                            : NULL;
    good = entries && JSON_NODE_HOLDS_ARRAY(entries) &&
           json_array_get_length(json_node_get_array(entries)) > 0;
    if (!good) fail(error, path, "no \"entries\", an array of at least one");
    for (guint i = 0; good && i < json_array_get_length(json_node_get_array(entries)); ++i) {
      TuningEntry entry = {0};
      good = read_entry(json_array_get_element(json_node_get_array(entries), i), &entry, path, error);
      g_array_append_val(set, entry);
    }
  }
  g_object_unref(parser);
  if (good) return set;
  g_array_unref(set);
  return NULL;
}

GArray* tuning_fallback(void) {
  const TuningEntry entry = {
      .gain = 4,
      .luma = {.enable = 1,
               .layer = 4,
               .pIntensity = {6, 6, 5, 4, 0},
               .pRadius = {5, 7, 7, 7, 0},
               .param0 = 64},
      .chroma = {.enable = 1,
                 .range_factor = 12,
                 .smooth_radius = 12,
                 .scale = 2,
                 .step = 1,
                 .color_edge_u = 8,
                 .color_edge_v = 8}};
  GArray* set = g_array_new(FALSE, TRUE, sizeof(TuningEntry));
  return g_array_append_val(set, entry);
}

const TuningEntry* tuning_nearest(const GArray* set, gdouble gain) {
  const TuningEntry* best = NULL;
  gdouble best_distance = 0;
  for (guint i = 0; i < set->len; ++i) {
    const TuningEntry* entry = &g_array_index(set, TuningEntry, i);
    const gdouble distance = fabs(log2(gain) - log2(entry->gain));
    if (best && distance >= best_distance) continue;
    best = entry;
    best_distance = distance;
  }
  return best;
}
