import type { FunctionComponent } from "preact";
import { useEffect, useRef } from "preact/hooks";

export interface Tab {
  id: string;
  title: string;
  icon: FunctionComponent;
  badge: { count: number; label: string } | undefined;
}

interface TabsProps {
  label: string;
  tabs: Tab[];
  current: string;
  onChoose: (id: string) => void;
}

/** Where the tabs are wider than the screen, they scroll; the chosen one is always in sight. */
export function Tabs({ label, tabs, current, onChoose }: TabsProps) {
  const bar = useRef<HTMLElement>(null);
  useEffect(() => {
    const chosen = bar.current?.querySelector<HTMLElement>("[aria-current]");
    if (!bar.current || !chosen) return;
    bar.current.scrollTo({ left: chosen.offsetLeft + chosen.offsetWidth / 2 - bar.current.clientWidth / 2 });
  }, [current, tabs[0]?.title]);

  return (
    <nav ref={bar} class="tabs" aria-label={label} onWheel={(event) => (event.currentTarget.scrollLeft += event.deltaY)}>
      {tabs.map(({ id, title, icon: Icon, badge }) => (
        <button
          type="button"
          key={id}
          data-tab={id}
          title={title}
          aria-current={current === id ? "page" : undefined}
          onClick={() => onChoose(id)}
        >
          <Icon />
          <span class="tab-text">{title}</span>
          {badge !== undefined && badge.count > 0 && (
            <span class="count" aria-label={badge.label}>
              {badge.count > 999 ? "999+" : badge.count}
            </span>
          )}
        </button>
      ))}
    </nav>
  );
}
