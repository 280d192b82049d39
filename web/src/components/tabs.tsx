import type { FunctionComponent } from "preact";
import { notifications, view, type View } from "../model/session";
import { ListIcon, PulseIcon, SendIcon } from "./icons";

const entries: { id: View; text: string; icon: FunctionComponent }[] = [
  { id: "uris", text: "URIs", icon: ListIcon },
  { id: "request", text: "Request", icon: SendIcon },
  { id: "live", text: "Live", icon: PulseIcon },
];

/** The bar that a narrow screen shows at the bottom. */
export function Tabs() {
  return (
    <nav class="tabs" aria-label="Views">
      {entries.map(({ id, text, icon: Icon }) => (
        <button
          type="button"
          key={id}
          data-tab={id}
          aria-current={view.value === id ? "page" : undefined}
          onClick={() => (view.value = id)}
        >
          <Icon />
          <span>{text}</span>
          {id === "live" && notifications.total.value > 0 && (
            <span class="count" aria-label={`${notifications.total.value} notifications`}>
              {notifications.total.value > 999 ? "999+" : notifications.total.value}
            </span>
          )}
        </button>
      ))}
    </nav>
  );
}
