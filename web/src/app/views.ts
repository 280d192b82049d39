import type { View } from "./view";

// A feature with a `view.ts` is a view; no other file names it.
const found = import.meta.glob<View>("../features/*/view.ts", { eager: true, import: "view" });

/** The registry of views, in the order of their tabs. */
export const views: readonly View[] = Object.values(found).sort((one, other) => one.order - other.order);

// The words of all features are there from the start, also of those whose code is loaded later: the page reads the texts
// of a language all at once.
import.meta.glob("../features/*/words.ts", { eager: true });
