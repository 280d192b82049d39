import { effect, signal } from "@preact/signals";

/** The page's colours: those of the system, or what the viewer chose in this browser. base.css has the colours. */

export const themes = ["system", "light", "dark"] as const;
export type Theme = (typeof themes)[number];

// public/theme.js reads it before the page is shown.
const storageKey = "dtv.theme";

const root = document.documentElement;
const themeOf = (text: string | null | undefined): Theme => themes.find((each) => each === text) ?? "system";

export const theme = signal<Theme>(themeOf(root.dataset["theme"]));

export function setTheme(next: Theme) {
  theme.value = next;
  try {
    if (next === "system") localStorage.removeItem(storageKey);
    else localStorage.setItem(storageKey, next);
  } catch {
    // Without storage, the choice is not kept.
  }
}

// Another tab of this browser has changed it.
addEventListener("storage", ({ key, newValue }) => {
  if (key === storageKey) theme.value = themeOf(newValue);
});

// The colours of the browser's own bars, the light one first.
const bars = [...document.querySelectorAll<HTMLMetaElement>('meta[name="theme-color"]')];
const barColours = bars.map(({ content }) => content);

effect(() => {
  const chosen = theme.value;
  if (chosen === "system") delete root.dataset["theme"];
  else root.dataset["theme"] = chosen;
  bars.forEach((bar, index) => {
    bar.content = barColours[chosen === "system" ? index : chosen === "light" ? 0 : 1] ?? "";
  });
});
