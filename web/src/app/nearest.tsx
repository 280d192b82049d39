import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { isObject } from "../lib/json";
import { Breakable } from "../ui/breakable";
import { RpcError } from "./rpc";
import { call, connection } from "./session";
import { label } from "./words";

/** While somebody types, the page asks the host only after a pause. */
const pauseMs = 250;

/** The host refuses a URI that it does not know, and names those that are most like it. */
async function readNearest(uri: string): Promise<string[]> {
  try {
    await call("get", { uri });
  } catch (reason) {
    const nearest = reason instanceof RpcError && isObject(reason.data) ? reason.data["nearest"] : undefined;
    if (Array.isArray(nearest)) return nearest.filter((each) => typeof each === "string");
  }
  return [];
}

/** Links to the URIs that are most like one that the registry does not have. */
export function Nearest({ uri }: { uri: string }) {
  const found = useSignal<string[]>([]);
  const connected = connection.value.name === "open";
  useEffect(() => {
    if (!connected) return;
    let shown = true;
    const timer = setTimeout(async () => {
      const nearest = await readNearest(uri);
      if (shown) found.value = nearest;
    }, pauseMs);
    return () => {
      shown = false;
      clearTimeout(timer);
    };
  }, [uri, connected]);
  if (found.value.length === 0) return null;
  return (
    <div class="nearest">
      <p>{label("IDS_NEAREST")}</p>
      <ul>
        {found.value.map((each) => (
          <li key={each}>
            <a href={`#${each}`}>
              <Breakable text={each} />
            </a>
          </li>
        ))}
      </ul>
    </div>
  );
}
