import { useEffect } from "preact/hooks";
import { label } from "../model/labels";
import { notice } from "../model/session";

const shownMs = 6000;

/** The one-line message at the foot of the page; it covers, so that nothing moves. */
export function Notice() {
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
            {label("IDS_CLOSE")}
          </button>
        </p>
      )}
    </div>
  );
}
