import { computed } from "@preact/signals";
import { selectedUri } from "../../app/navigation";
import { list } from "../../app/session";

/** The row of the selected URI. If the registry lists a URI twice, the plugin and the page use the first row. */
export const selectedRow = computed(() => list.value?.uris.find((row) => row.uri === selectedUri.value) ?? null);
export const selectedType = computed(() => (selectedRow.value && list.value?.types[selectedRow.value.type]) || null);
