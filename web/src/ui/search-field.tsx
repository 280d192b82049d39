import type { Signal } from "@preact/signals";
import type { RefObject } from "preact";
import { useEffect } from "preact/hooks";
import { SearchIcon } from "./icons";
import "./search-field.css";

interface SearchFieldProps {
  text: Signal<string>;
  label: string;
  placeholder: string;
  input: RefObject<HTMLInputElement | null>;
  /** Called for the key "/" outside of input fields. Returns whether this field takes the focus. */
  onSlash?: () => boolean;
}

/** A search that "/" focuses and Escape clears. */
export function SearchField({ text, label, placeholder, input, onSlash = () => true }: SearchFieldProps) {
  useEffect(() => {
    const focusSearch = (event: KeyboardEvent) => {
      const target = event.target as HTMLElement;
      if (event.key !== "/" || target.closest("input, textarea, select") || event.ctrlKey || event.metaKey) return;
      if (!onSlash()) return;
      event.preventDefault();
      input.current?.focus();
      input.current?.select();
    };
    document.addEventListener("keydown", focusSearch);
    return () => document.removeEventListener("keydown", focusSearch);
  }, []);

  return (
    <label class="search">
      <SearchIcon />
      <input
        ref={input}
        type="search"
        aria-label={label}
        placeholder={placeholder}
        autocomplete="off"
        spellcheck={false}
        value={text.value}
        onInput={(event) => (text.value = event.currentTarget.value)}
        onKeyDown={(event) => {
          if (event.key === "Escape") text.value = "";
        }}
      />
      <kbd aria-hidden="true">/</kbd>
    </label>
  );
}
