import { signal } from "@preact/signals";
import { useEffect } from "preact/hooks";

const shownMs = 6000;

const notice = signal<{ text: string; number: number } | null>(null);
let notices = 0;

/** Shows a message for a few seconds. */
export function tell(text: string) {
  notice.value = { text, number: ++notices };
}

/** The message at the bottom of the page. It covers the content, so that nothing moves. */
export function Notice({ close }: { close: string }) {
  const current = notice.value;
  useEffect(() => {
    if (!current) return;
    const timer = setTimeout(() => (notice.value = null), shownMs);
    return () => clearTimeout(timer);
  }, [current?.number]);

  return (
    <div class="notice" role="status" aria-live="polite">
      {current && (
        <p key={current.number}>
          <span>{current.text}</span>
          <button type="button" class="link-button" onClick={() => (notice.value = null)}>
            {close}
          </button>
        </p>
      )}
    </div>
  );
}
