import { notifications } from "../../app/session";
import type { View } from "../../app/view";
import { PulseIcon } from "../../ui/icons";
import { LivePanel } from "./live-panel";
import { label } from "./words";

export const view: View = {
  id: "live",
  title: () => label("IDS_LIVE"),
  order: 50,
  icon: PulseIcon,
  component: LivePanel,
  column: true,
  badge: () => ({ count: notifications.total.value, label: `${notifications.total.value} notifications` }),
};
