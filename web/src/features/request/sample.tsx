import { signal, useSignal } from "@preact/signals";
import { useLayoutEffect, useRef } from "preact/hooks";
import { CopyButton } from "../../ui/copy-button";
import { JsonText } from "../../ui/json-view";
import { sampleKinds, sampleOf, type Call, type SampleKind } from "./samples";
import { label } from "./words";

// One choice for all forms: it is kept when another URI is selected.
const chosen = signal<SampleKind>("JSON-RPC");

// The width of a character and the padding of the code; a little too large, so that a line is not wrapped again.
const characterPx = 7.7;
const paddingPx = 26;

/** Measures how many characters fit into a line of an element. */
function useColumns() {
  const ref = useRef<HTMLPreElement>(null);
  const columns = useSignal(60);
  useLayoutEffect(() => {
    if (!ref.current) return;
    const element = ref.current;
    const measure = () => (columns.value = Math.floor((element.clientWidth - paddingPx) / characterPx));
    measure();
    const observer = new ResizeObserver(measure);
    observer.observe(element);
    return () => observer.disconnect();
  }, []);
  return { ref, columns: columns.value };
}

/** The request that will be sent, ready to copy. */
export function Sample({ call }: { call: Call }) {
  const kinds = sampleKinds(call);
  const kind = kinds.includes(chosen.value) ? chosen.value : "JSON-RPC";
  const { ref, columns } = useColumns();
  const text = sampleOf(kind, call, location.origin, columns);
  return (
    <div class="sample">
      <div class="sample-bar">
        <div class="segments small" role="group" aria-label={label("IDS_SHOW_REQUEST_AS")}>
          {kinds.map((each) => (
            <button type="button" key={each} aria-pressed={each === kind} onClick={() => (chosen.value = each)}>
              {each}
            </button>
          ))}
        </div>
        <CopyButton text={text} label={label("IDS_COPY_REQUEST")} refused={label("IDS_CLIPBOARD_REFUSED")} />
      </div>
      <pre ref={ref} class="code" tabIndex={0} aria-label={label("IDS_REQUEST_TO_SEND")}>
        {kind === "JSON-RPC" ? <JsonText text={text} /> : text}
      </pre>
    </div>
  );
}
