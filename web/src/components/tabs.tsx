import type { FunctionComponent } from "preact";
import { label, type LabelId } from "../model/labels";
import { notifications, show, view, type View } from "../model/session";
import { ListIcon, PulseIcon, RemoteIcon, SendIcon, SlidersIcon } from "./icons";

const entries: { id: View; text: LabelId; icon: FunctionComponent }[] = [
  { id: "uris", text: "IDS_URIS", icon: ListIcon },
  { id: "request", text: "IDS_REQUEST", icon: SendIcon },
  { id: "configuration", text: "IDS_CONFIGURATION", icon: SlidersIcon },
  { id: "remote", text: "IDS_REMOTE_CONTROL", icon: RemoteIcon },
  { id: "live", text: "IDS_LIVE", icon: PulseIcon },
];

/** The views: in the header of a wide screen, in a bar at the bottom of a narrow one. */
export function Tabs() {
  return (
    <nav class="tabs" aria-label="Views">
      {entries.map(({ id, text, icon: Icon }) => (
        <button
          type="button"
          key={id}
          data-tab={id}
          aria-current={view.value === id ? "page" : undefined}
          onClick={() => show(id)}
        >
          <Icon />
          <span class="tab-text">{label(text)}</span>
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
