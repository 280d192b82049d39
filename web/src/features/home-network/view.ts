import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { HomeNetworkIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "home-network",
  title: () => label("IDS_HOME_NETWORK"),
  order: 28,
  icon: HomeNetworkIcon,
  component: lazy(async () => (await import("./home-network-panel")).HomeNetworkPanel),
};
