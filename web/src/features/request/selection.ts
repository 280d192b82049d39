import { computed } from "@preact/signals";
import { selectedUri } from "../../app/navigation";
import { list } from "../../app/session";

/** The row of the selected URI. The registry may list a URI twice; the plugin uses the first row, and so does the page. */
export const selectedRow = computed(() => list.value?.uris.find((row) => row.uri === selectedUri.value) ?? null);
export const selectedType = computed(() => (selectedRow.value && list.value?.types[selectedRow.value.type]) || null);
